#include "board_harness.hpp"

#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

class GpioTest : public ::testing::Test
{
  protected:
    GpioTest() : harness(scenario()), board(harness.board())
    {}

    static Scenario scenario()
    {
        Scenario scenario;
        scenario.faults.push_back(fault("gpioBusy", 5.0, 6.0));
        scenario.faults.back().line = "GPU_BASE_PWR_GD";
        scenario.host.push_back({2.0, HostAction::Kind::enable});
        scenario.host.push_back({3.0, HostAction::Kind::disable});
        return scenario;
    }

    int request(uint64_t owner, const std::string& line, bool output,
                uint32_t& handle, int value = 0)
    {
        return board.requestLine(owner, line, "test", output, 0, value, handle);
    }

    BoardHarness harness;
    Board& board;
};

TEST_F(GpioTest, OneRequestHoldsALineAtATime)
{
    uint32_t first = 0;
    uint32_t second = 0;
    ASSERT_EQ(0, request(1, "GPU_BASE_HMC_READY", true, first));
    EXPECT_EQ(-EBUSY, request(2, "GPU_BASE_HMC_READY", false, second));
    EXPECT_EQ(0, board.releaseLine(first));
    EXPECT_EQ(0, request(2, "GPU_BASE_HMC_READY", false, second));
    EXPECT_EQ(-ENOENT, request(1, "NO_SUCH_LINE", false, first));
    EXPECT_FALSE(board.lineExists("NO_SUCH_LINE"));
    BoardStats stats = board.stats();
    EXPECT_EQ(1u, stats.gpioBusy);
    EXPECT_EQ(3u, stats.gpioRequests);
}

TEST_F(GpioTest, ReadingAndDrivingNeedTheRequest)
{
    uint32_t handle = 0;
    EXPECT_EQ(-EPERM, board.getLine(77));
    EXPECT_EQ(-EPERM, board.setLine(77, 1));
    ASSERT_EQ(0, request(1, "GPU_BASE_PWR_GD", false, handle));
    EXPECT_EQ(-EPERM, board.setLine(handle, 1)); // held as an input
    board.releaseLine(handle);
    EXPECT_EQ(-EPERM, board.getLine(handle));
    EXPECT_EQ(-EINVAL, board.releaseLine(handle));
    // The board drives these two itself.
    EXPECT_EQ(-EPERM, request(1, "HDT_DBREQ_L", true, handle));
}

TEST_F(GpioTest, ReleasingAnOwnerGivesBackAllItsLinesAndKeepsTheLevels)
{
    uint32_t a = 0;
    uint32_t b = 0;
    uint32_t other = 0;
    ASSERT_EQ(0, request(7, "GPU_BASE_FPGA_READY", true, a, 1));
    ASSERT_EQ(0, request(7, "SMC_UBB_FLASH_AB_SEL", true, b, 1));
    ASSERT_EQ(0, request(8, "GPU_BASE_PWR_GD", true, other, 1));
    board.releaseOwner(7);
    EXPECT_EQ(-EPERM, board.getLine(a));
    EXPECT_EQ(1, board.getLine(other));
    EXPECT_EQ(1, harness.level("GPU_BASE_FPGA_READY"));
    EXPECT_EQ(1, harness.level("SMC_UBB_FLASH_AB_SEL"));
}

TEST_F(GpioTest, BusyFaultHoldsTheLineInItsWindow)
{
    harness.advanceTo(5s);
    EXPECT_EQ(-EBUSY, harness.drive("GPU_BASE_PWR_GD", 1));
    harness.advanceTo(6s);
    EXPECT_EQ(0, harness.drive("GPU_BASE_PWR_GD", 1));
}

TEST_F(GpioTest, HostDrivesTheBaseEnableAtItsTimes)
{
    EXPECT_EQ(0, harness.level("GPU_BASE_PWR_EN"));
    harness.advanceTo(2s);
    EXPECT_EQ(1, harness.level("GPU_BASE_PWR_EN"));
    harness.advanceTo(3s);
    EXPECT_EQ(0, harness.level("GPU_BASE_PWR_EN"));
}

TEST_F(GpioTest, SmcResetLetsGoOfEveryLine)
{
    uint32_t handle = 0;
    ASSERT_EQ(0, request(1, "GPU_BASE_HMC_READY", true, handle, 1));
    EXPECT_EQ(0x00000001u, board.resetReason());
    board.smcReset();
    EXPECT_EQ(0x1000u, board.resetReason() & 0x3000);
    EXPECT_EQ(-EPERM, board.getLine(handle));
    EXPECT_EQ(1, harness.level("GPU_BASE_HMC_READY"));
}

} // namespace
} // namespace ubbsim::test
