#include "board_harness.hpp"

#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

constexpr int fpgaBus = 3;
constexpr uint16_t fpga = 0x56;

int moduleGood(BoardHarness& board)
{
    return board.read(fpgaBus, fpga, 0x61);
}

int hotswapGood(BoardHarness& board)
{
    return board.read(14, 0x27, 0x04);
}

class ModulePowerTest : public ::testing::Test
{
  protected:
    explicit ModulePowerTest(Scenario scenario = absentSlotTwo()) :
        board(scenario)
    {
        board.bringUpStandby();
    }

    static Scenario absentSlotTwo()
    {
        Scenario scenario;
        scenario.oams[2].present = false;
        return scenario;
    }

    void releaseExpanders()
    {
        board.write(4, 0x25, {0x0A, 0xFE});
    }
    void hotswap(bool on)
    {
        board.write(4, 0x25, {0x09, static_cast<uint8_t>(on ? 0x07 : 0x06)});
    }

    BoardHarness board;
};

TEST_F(ModulePowerTest, HotswapPowerGoodComesAfterItsDelayAndGoesWithEnable)
{
    hotswap(true);
    SimTime enabledAt = board.now();
    EXPECT_EQ(-EREMOTEIO, hotswapGood(board)); // expanders still in reset
    releaseExpanders();
    EXPECT_EQ(0x00, hotswapGood(board) & 0x0F);
    board.advanceTo(enabledAt + 200ms);
    EXPECT_EQ(0x0F, hotswapGood(board) & 0x0F);
    hotswap(false);
    EXPECT_EQ(0x00, hotswapGood(board) & 0x0F);
}

TEST_F(ModulePowerTest, ModuleGoodNeedsHotswapHostGoodAndPresence)
{
    releaseExpanders();
    board.write(fpgaBus, fpga, {0x60, 0xFF}); // host good without hotswap
    board.advanceBy(1s);
    EXPECT_EQ(0x00, moduleGood(board));

    hotswap(true);
    board.advanceBy(200ms);
    SimTime goodAt = board.now();
    // Host good was already there: modules follow the hotswap's good.
    board.advanceTo(goodAt + 49ms);
    EXPECT_EQ(0x00, moduleGood(board));
    board.advanceTo(goodAt + 50ms);
    EXPECT_EQ(0xFB, moduleGood(board)); // slot 2 is empty

    board.write(fpgaBus, fpga, {0x60, 0xFE});
    EXPECT_EQ(0xFA, moduleGood(board));
    hotswap(false);
    EXPECT_EQ(0x00, moduleGood(board));
}

TEST_F(ModulePowerTest, HostGoodAfterHotswapStartsTheDelayThen)
{
    releaseExpanders();
    hotswap(true);
    board.advanceBy(1s);
    board.write(fpgaBus, fpga, {0x60, 0x01});
    SimTime hostAt = board.now();
    board.advanceTo(hostAt + 49ms);
    EXPECT_EQ(0x00, moduleGood(board));
    board.advanceTo(hostAt + 50ms);
    EXPECT_EQ(0x01, moduleGood(board));
}

TEST_F(ModulePowerTest, HostGoodToggledWithinTheDelayRestartsIt)
{
    releaseExpanders();
    hotswap(true);
    board.advanceBy(1s);
    board.write(fpgaBus, fpga, {0x60, 0x01});
    board.advanceBy(20ms);
    board.write(fpgaBus, fpga, {0x60, 0x00});
    board.write(fpgaBus, fpga, {0x60, 0x01});
    SimTime again = board.now();
    board.advanceTo(again + 49ms); // past the first write's 50 ms
    EXPECT_EQ(0x00, moduleGood(board));
    board.advanceTo(again + 50ms);
    EXPECT_EQ(0x01, moduleGood(board));
}

class ModuleFaults : public ModulePowerTest
{
  protected:
    ModuleFaults() : ModulePowerTest(faulty())
    {}

    static Scenario faulty()
    {
        Scenario scenario;
        scenario.faults.push_back(fault("hotswapNoGood"));
        scenario.faults.back().count = 1;
        scenario.faults.push_back(fault("moduleGoodLost", 20.0, 21.0));
        scenario.faults.back().oam = 5;
        return scenario;
    }
};

TEST_F(ModuleFaults, HotswapFailsForItsCountOfEnablesThenWorks)
{
    releaseExpanders();
    hotswap(true);
    board.advanceBy(3s);
    EXPECT_EQ(0x00, hotswapGood(board) & 0x0F);
    hotswap(false);
    hotswap(true);
    board.advanceBy(300ms);
    EXPECT_EQ(0x0F, hotswapGood(board) & 0x0F);
}

TEST_F(ModuleFaults, LostModuleDropsAtItsTimeAndComesBackAfter)
{
    releaseExpanders();
    hotswap(true);
    hotswap(false);
    hotswap(true); // the first enable is the failing one
    board.advanceBy(300ms);
    board.write(fpgaBus, fpga, {0x60, 0xFF});
    board.advanceTo(20s - 1ns);
    EXPECT_EQ(0xFF, moduleGood(board));
    board.advanceTo(20s);
    EXPECT_EQ(0xDF, moduleGood(board));
    board.advanceTo(21s + 50ms);
    EXPECT_EQ(0xFF, moduleGood(board));
}

} // namespace
} // namespace ubbsim::test
