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
    ModulePowerTest() : board(absentSlotTwo())
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

constexpr int bus = 2;
constexpr uint16_t mux = 0x70;
constexpr uint16_t dac = 0x60;

class OamMuxTest : public ::testing::Test
{
  protected:
    OamMuxTest() : board(scenario())
    {
        board.bringUpStandby();
    }

    static Scenario scenario()
    {
        Scenario scenario;
        scenario.oams[1].ibcAddress = 0x1F;
        return scenario;
    }

    int select(uint8_t channels)
    {
        return board.write(bus, mux, {channels});
    }

    BoardHarness board;
};

TEST_F(OamMuxTest, AnswersOnlyWhileTheFpgaReleasesItAndForgetsOnReset)
{
    EXPECT_EQ(0, select(0x08));
    std::vector<I2cSegment> read{{mux, true, 1, {}}};
    ASSERT_EQ(0, board.board().transfer(bus, read, false));
    EXPECT_EQ(0x08, read[0].data.at(0));

    board.write(3, 0x56, {0x10, 0x00});
    EXPECT_EQ(-EREMOTEIO, select(0x08));
    EXPECT_EQ(-ENXIO, board.read(bus, dac, 0x60)); // nothing routed
    board.write(3, 0x56, {0x10, 0x02});
    read[0].data.clear();
    ASSERT_EQ(0, board.board().transfer(bus, read, false));
    EXPECT_EQ(0x00, read[0].data.at(0));
}

TEST_F(OamMuxTest, OamDevicesNeedTheirStandbyRail)
{
    board.write(4, 0x25, {0x09, 0x04}); // P3V3_OAM_47 off
    select(0x01);
    EXPECT_LE(0, board.read(bus, dac, 0x60));
    select(0x80);
    EXPECT_EQ(-EREMOTEIO, board.read(bus, dac, 0x60));
}

TEST_F(OamMuxTest, IbcAnswersAtItsBillOfMaterialsAddress)
{
    select(0x02);
    EXPECT_EQ(-ENXIO, board.read(bus, 0x11, 0x8D));
    EXPECT_LE(0, board.read(bus, 0x1F, 0x8D));
    select(0x01);
    EXPECT_LE(0, board.read(bus, 0x11, 0x8D));
    EXPECT_EQ(-ENXIO, board.read(bus, 0x1F, 0x8D));
}

TEST_F(OamMuxTest, PmbusPageAndClearFaults)
{
    select(0x01);
    EXPECT_NE(0, board.read(bus, 0x11, 0x78)); // a fault latched at power-up
    ASSERT_EQ(0, board.write(bus, 0x11, {0x00, 0x01}));
    EXPECT_EQ(0x01, board.read(bus, 0x11, 0x00));
    ASSERT_EQ(0, board.write(bus, 0x11, {0x03}));
    EXPECT_EQ(0, board.read(bus, 0x11, 0x78));
    EXPECT_LE(0, board.read(bus, 0x15, 0x79)); // and so does its hotswap
}

} // namespace
} // namespace ubbsim::test
