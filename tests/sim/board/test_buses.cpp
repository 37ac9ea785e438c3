#include "board_harness.hpp"

#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

TEST(Buses, TransfersTakeTheirBitsAndFailAsTheKernelDoes)
{
    Scenario scenario;
    scenario.faults.push_back(fault("nack", 2.0, 3.0));
    scenario.faults.back().bus = 14;
    scenario.faults.back().address = 0x4C;
    BoardHarness board(scenario);
    // start, three bytes of nine clocks with the address, stop: 29 bits.
    board.write(14, 0x4C, {0x3B, 0x0E});
    EXPECT_EQ(SimTime(29 * 2500ns), board.now());

    EXPECT_EQ(-ENXIO, board.read(14, 0x4D, 0x00));
    EXPECT_LE(0, board.read(14, 0x4C, 0x00));
    board.advanceTo(2s);
    EXPECT_EQ(-EREMOTEIO, board.read(14, 0x4C, 0x00));
    EXPECT_EQ(-ENXIO, board.read(14, 0x4D, 0x00));
    board.advanceTo(3s);
    EXPECT_LE(0, board.read(14, 0x4C, 0x00));
    EXPECT_EQ(3u, board.board().stats().i2cFailures);
}

TEST(Buses, ExpandersNackInResetAndLeaveItWithPowerOnRegisters)
{
    BoardHarness board;
    board.configureExpander();
    EXPECT_EQ(-EREMOTEIO, board.read(14, 0x20, 0x08));
    EXPECT_EQ(-EREMOTEIO, board.read(14, 0x27, 0x08));
    board.write(expanderBus, expander, {0x0A, 0x02});
    ASSERT_EQ(0, board.write(14, 0x20, {0x08, 0x63}));
    ASSERT_EQ(0, board.write(14, 0x27, {0x28, 0x80}));
    EXPECT_EQ(0x63, board.read(14, 0x20, 0x08));
    EXPECT_EQ(0x80, board.read(14, 0x27, 0x28));
    board.write(expanderBus, expander, {0x0A, 0x00});
    board.write(expanderBus, expander, {0x0A, 0x02});
    EXPECT_EQ(0x00, board.read(14, 0x20, 0x08));
}

int request(Board& board, uint64_t owner, const std::string& line, bool output,
            uint32_t& handle, int value = 0)
{
    return board.requestLine(owner, line, "test", output, 0, value, handle);
}

TEST(Gpio, OneRequestHoldsALineAndOnlyItReadsOrDrives)
{
    BoardHarness harness;
    Board& board = harness.board();
    uint32_t first = 0;
    uint32_t second = 0;
    ASSERT_EQ(0, request(board, 1, "GPU_BASE_HMC_READY", true, first));
    EXPECT_EQ(-EBUSY, request(board, 2, "GPU_BASE_HMC_READY", false, second));
    EXPECT_EQ(0, board.releaseLine(first));
    EXPECT_EQ(0, request(board, 2, "GPU_BASE_HMC_READY", false, second));
    EXPECT_EQ(-ENOENT, request(board, 1, "NO_SUCH_LINE", false, first));
    EXPECT_FALSE(board.lineExists("NO_SUCH_LINE"));
    BoardStats stats = board.stats();
    EXPECT_EQ(1u, stats.gpioBusy);
    EXPECT_EQ(3u, stats.gpioRequests);

    uint32_t handle = 0;
    EXPECT_EQ(-EPERM, board.getLine(77));
    EXPECT_EQ(-EPERM, board.setLine(77, 1));
    ASSERT_EQ(0, request(board, 1, "GPU_BASE_PWR_GD", false, handle));
    EXPECT_EQ(-EPERM, board.setLine(handle, 1)); // held as an input
    board.releaseLine(handle);
    EXPECT_EQ(-EPERM, board.getLine(handle));
    EXPECT_EQ(-EINVAL, board.releaseLine(handle));
    // The board drives this one itself.
    EXPECT_EQ(-EPERM, request(board, 1, "HDT_DBREQ_L", true, handle));
}

TEST(Gpio, OwnerReleaseAndSmcResetGiveLinesBackAndKeepTheLevels)
{
    BoardHarness harness;
    Board& board = harness.board();
    uint32_t a = 0;
    uint32_t b = 0;
    uint32_t other = 0;
    ASSERT_EQ(0, request(board, 7, "GPU_BASE_FPGA_READY", true, a, 1));
    ASSERT_EQ(0, request(board, 7, "SMC_UBB_FLASH_AB_SEL", true, b, 1));
    ASSERT_EQ(0, request(board, 8, "GPU_BASE_PWR_GD", true, other, 1));
    board.releaseOwner(7);
    EXPECT_EQ(-EPERM, board.getLine(a));
    EXPECT_EQ(1, board.getLine(other));
    EXPECT_EQ(1, harness.level("GPU_BASE_FPGA_READY"));
    EXPECT_EQ(1, harness.level("SMC_UBB_FLASH_AB_SEL"));

    EXPECT_EQ(0x00000001u, board.resetReason());
    board.smcReset();
    EXPECT_EQ(0x1000u, board.resetReason() & 0x3000);
    EXPECT_EQ(-EPERM, board.getLine(other));
    EXPECT_EQ(1, harness.level("GPU_BASE_PWR_GD"));
}

} // namespace
} // namespace ubbsim::test
