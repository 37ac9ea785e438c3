#include "board_harness.hpp"

#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

class RailTest : public ::testing::Test
{
  protected:
    void enable(uint8_t bank, uint8_t bits)
    {
        ASSERT_EQ(0, board.write(expanderBus, expander, {bank, bits}));
    }
    int status(uint8_t reg)
    {
        return board.read(expanderBus, expander, reg);
    }

    BoardHarness board;
};

TEST_F(RailTest, PowerGoodFollowsEnableAfterTheDelayAndDropsAtOnce)
{
    board.configureExpander();
    board.advanceTo(1s);
    SimTime enabledAt = board.now();
    enable(0x08, 0x01); // VCCINT_FPGA: 3 ms, good bit 0x80 of register 0x01
    EXPECT_EQ(0, status(0x01) & 0x80);
    board.advanceTo(enabledAt + 3ms - 1ns);
    EXPECT_EQ(0, status(0x01) & 0x80);
    board.advanceTo(enabledAt + 3ms);
    EXPECT_EQ(0x80, status(0x01) & 0x80);
    // The bank reads back what was written, as the daemon's verify expects.
    EXPECT_EQ(0x01, status(0x08));

    enable(0x0A, 0x40); // 0V9_AD_RT01: 10 ms, good bit 0x04 of register 0x03
    board.advanceBy(50ms);
    EXPECT_EQ(0x04, status(0x03) & 0x04);
    enable(0x0A, 0x00);
    EXPECT_EQ(0, status(0x03) & 0x04);
    // Off and on again quickly: the first enable's edge must not come
    // early for the second.
    enable(0x0A, 0x40);
    board.advanceBy(5ms);
    enable(0x0A, 0x00);
    enable(0x0A, 0x40);
    SimTime second = board.now();
    board.advanceTo(second + 9ms);
    EXPECT_EQ(0, status(0x03) & 0x04);
    board.advanceTo(second + 10ms);
    EXPECT_EQ(0x04, status(0x03) & 0x04);
}

TEST_F(RailTest, InputPinsDriveNoRailAndAbsentK517RailsReadGood)
{
    enable(0x08, 0x1F); // direction registers still at their power-on 0xFF
    board.advanceBy(100ms);
    EXPECT_EQ(0x7F, status(0x01));
    EXPECT_EQ(0x1F, status(0x08));

    board.configureExpander();
    EXPECT_EQ(0, status(0x02) & 0x01);
    enable(0x0B, 0x30);
    board.advanceBy(20ms);
    EXPECT_EQ(0x01, status(0x02) & 0x01);
    EXPECT_EQ(0x04, status(0x04) & 0x04);

    Scenario without;
    without.k517 = false;
    BoardHarness plain(without);
    plain.configureExpander();
    EXPECT_EQ(0x01, plain.read(expanderBus, expander, 0x02) & 0x01);
    EXPECT_EQ(0x04, plain.read(expanderBus, expander, 0x04) & 0x04);
}

// Slot 2 empty; standby up, expanders still in reset.
class ModulePowerTest : public ::testing::Test
{
  protected:
    ModulePowerTest() : board(scenario())
    {
        board.bringUpStandby();
    }
    static Scenario scenario()
    {
        Scenario scenario;
        scenario.oams[2].present = false;
        scenario.oams[1].ibcAddress = 0x1F;
        return scenario;
    }

    void releaseExpanders()
    {
        board.write(expanderBus, expander, {0x0A, 0xFE});
    }
    void hotswap(bool on)
    {
        board.write(expanderBus, expander, {0x09, uint8_t(on ? 0x07 : 0x06)});
    }
    void hostGood(uint8_t oams)
    {
        board.write(fpgaBus, fpga, {0x60, oams});
    }
    int moduleGood()
    {
        return board.read(fpgaBus, fpga, 0x61);
    }
    int hotswapGood()
    {
        return board.read(14, 0x27, 0x04);
    }

    BoardHarness board;
};

TEST_F(ModulePowerTest, ModuleGoodNeedsHotswapHostGoodAndPresence)
{
    hostGood(0xFF); // host good before the hotswap
    hotswap(true);
    SimTime enabledAt = board.now();
    EXPECT_EQ(-EREMOTEIO, hotswapGood()); // expanders still in reset
    releaseExpanders();
    EXPECT_EQ(0x00, hotswapGood() & 0x0F);
    EXPECT_EQ(0x00, moduleGood());
    board.advanceTo(enabledAt + 200ms);
    EXPECT_EQ(0x0F, hotswapGood() & 0x0F);
    SimTime goodAt = board.now();
    // Host good was already there: modules follow the hotswap's good.
    board.advanceTo(goodAt + 49ms);
    EXPECT_EQ(0x00, moduleGood());
    board.advanceTo(goodAt + 50ms);
    EXPECT_EQ(0xFB, moduleGood()); // slot 2 is empty

    hostGood(0xFE);
    EXPECT_EQ(0xFA, moduleGood());
    hotswap(false);
    EXPECT_EQ(0x00, hotswapGood() & 0x0F);
    EXPECT_EQ(0x00, moduleGood());
}

TEST_F(ModulePowerTest, HostGoodToggledWithinTheDelayRestartsIt)
{
    releaseExpanders();
    hotswap(true);
    board.advanceBy(1s);
    hostGood(0x01);
    board.advanceBy(20ms);
    hostGood(0x00);
    hostGood(0x01);
    SimTime again = board.now();
    board.advanceTo(again + 49ms); // past the first write's 50 ms
    EXPECT_EQ(0x00, moduleGood());
    board.advanceTo(again + 50ms);
    EXPECT_EQ(0x01, moduleGood());
}

constexpr int oamBus = 2;
constexpr uint16_t mux = 0x70;
constexpr uint16_t dac = 0x60;

TEST_F(ModulePowerTest, OamMuxAnswersOnlyWhileTheFpgaReleasesItAndForgets)
{
    EXPECT_EQ(0, board.write(oamBus, mux, {0x08}));
    std::vector<I2cSegment> read{{mux, true, 1, {}}};
    ASSERT_EQ(0, board.board().transfer(oamBus, read, false));
    EXPECT_EQ(0x08, read[0].data.at(0));

    board.write(fpgaBus, fpga, {0x10, 0x00});
    EXPECT_EQ(-EREMOTEIO, board.write(oamBus, mux, {0x08}));
    EXPECT_EQ(-ENXIO, board.read(oamBus, dac, 0x60)); // nothing routed
    board.write(fpgaBus, fpga, {0x10, 0x02});
    read[0].data.clear();
    ASSERT_EQ(0, board.board().transfer(oamBus, read, false));
    EXPECT_EQ(0x00, read[0].data.at(0));
}

TEST_F(ModulePowerTest, OamDevicesNeedStandbyAndAnswerAtTheirAddresses)
{
    board.write(expanderBus, expander, {0x09, 0x04}); // P3V3_OAM_47 off
    board.write(oamBus, mux, {0x80});
    EXPECT_EQ(-EREMOTEIO, board.read(oamBus, dac, 0x60));
    // The IBC answers at its bill-of-materials address.
    board.write(oamBus, mux, {0x02});
    EXPECT_EQ(-ENXIO, board.read(oamBus, 0x11, 0x8D));
    EXPECT_LE(0, board.read(oamBus, 0x1F, 0x8D));
    board.write(oamBus, mux, {0x01});
    EXPECT_LE(0, board.read(oamBus, dac, 0x60));
    EXPECT_EQ(-ENXIO, board.read(oamBus, 0x1F, 0x8D));
    // PMBus: a fault latched at power-up, the page, clearing the faults.
    EXPECT_NE(0, board.read(oamBus, 0x11, 0x78));
    ASSERT_EQ(0, board.write(oamBus, 0x11, {0x00, 0x01}));
    EXPECT_EQ(0x01, board.read(oamBus, 0x11, 0x00));
    ASSERT_EQ(0, board.write(oamBus, 0x11, {0x03}));
    EXPECT_EQ(0, board.read(oamBus, 0x11, 0x78));
    EXPECT_LE(0, board.read(oamBus, 0x15, 0x79)); // and so does its hotswap
}

} // namespace
} // namespace ubbsim::test
