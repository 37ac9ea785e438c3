#include "board_harness.hpp"

#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

constexpr int bus = 3;
constexpr uint16_t fpga = 0x56;

// FPGA rails on and good, the image not loaded.
void powerFpgaRails(BoardHarness& board)
{
    board.configureExpander();
    board.write(4, 0x25, {0x08, 0x1F});
    board.advanceBy(20ms);
}

TEST(UbbFpgaConfiguration, LoadsOnAProgramPulseAndAnswersOnlyThen)
{
    BoardHarness board;
    EXPECT_EQ(-EREMOTEIO, board.read(bus, fpga, 0x63));
    powerFpgaRails(board);
    EXPECT_EQ(-EREMOTEIO, board.read(bus, fpga, 0x63)); // powered, no image

    board.drive("UBB_FPGA_PROG_B", 0);
    board.advanceBy(1s);
    board.drive("UBB_FPGA_PROG_B", 1);
    SimTime pulse = board.now();
    board.advanceTo(pulse + 1500ms - 1ns);
    EXPECT_EQ(0, board.level("HDT_DBREQ_L"));
    EXPECT_EQ(-EREMOTEIO, board.read(bus, fpga, 0x63));
    board.advanceTo(pulse + 1500ms);
    EXPECT_EQ(1, board.level("HDT_DBREQ_L"));
    EXPECT_EQ(0x00, board.read(bus, fpga, 0x63));

    // PROG_B low clears the image at once.
    board.drive("UBB_FPGA_PROG_B", 0);
    EXPECT_EQ(0, board.level("HDT_DBREQ_L"));
    EXPECT_EQ(-EREMOTEIO, board.read(bus, fpga, 0x63));
}

TEST(UbbFpgaConfiguration, NothingLoadsWithoutRailsOrWhileTheSmcHoldsTheFlash)
{
    BoardHarness unpowered;
    unpowered.drive("UBB_FPGA_PROG_B", 0);
    unpowered.drive("UBB_FPGA_PROG_B", 1);
    unpowered.advanceBy(20s);
    EXPECT_EQ(0, unpowered.level("HDT_DBREQ_L"));

    BoardHarness flashHeld;
    powerFpgaRails(flashHeld);
    flashHeld.drive("SMC_UBB_FPGA_SPI_SEL", 1);
    flashHeld.drive("UBB_FPGA_PROG_B", 0);
    flashHeld.drive("UBB_FPGA_PROG_B", 1);
    flashHeld.advanceBy(20s);
    EXPECT_EQ(0, flashHeld.level("HDT_DBREQ_L"));
}

class UbbFpgaRegisters : public ::testing::Test
{
  protected:
    UbbFpgaRegisters() : board(scenario())
    {
        board.bringUpStandby();
    }

    static Scenario scenario()
    {
        Scenario scenario;
        scenario.oams[2].present = false;
        scenario.oams[6].present = false;
        scenario.host.push_back({8.0, HostAction::Kind::serverReset});
        scenario.host.push_back({9.0, HostAction::Kind::serverResetRelease});
        scenario.faults.push_back(fault("ctf", 5.0, 6.0));
        scenario.faults.back().oam = 3;
        return scenario;
    }

    BoardHarness board;
};

TEST_F(UbbFpgaRegisters, PowerOnValuesAndWhatTheOamsReport)
{
    EXPECT_EQ(0x44, board.read(bus, fpga, 0x63)); // slots 2 and 6 empty
    EXPECT_EQ(0xFF, board.read(bus, fpga, 0xC0));
    EXPECT_EQ(0x01, board.read(bus, fpga, 0x70) & 0x01);
    EXPECT_EQ(0x00, board.read(bus, fpga, 0x61));
    // Registers that report inputs ignore writes.
    board.write(bus, fpga, {0x63, 0x00});
    board.write(bus, fpga, {0xC0, 0x00});
    EXPECT_EQ(0x44, board.read(bus, fpga, 0x63));
    EXPECT_EQ(0xFF, board.read(bus, fpga, 0xC0));
    // The others store.
    board.write(bus, fpga, {0x91, 0x10});
    board.write(bus, fpga, {0xB0, 0xFF});
    EXPECT_EQ(0x10, board.read(bus, fpga, 0x91));
    EXPECT_EQ(0xFF, board.read(bus, fpga, 0xB0));
}

TEST_F(UbbFpgaRegisters, CtfAndServerResetFollowTheirTimes)
{
    board.advanceTo(5s);
    EXPECT_EQ(0xF7, board.read(bus, fpga, 0xC0));
    board.advanceTo(6s);
    EXPECT_EQ(0xFF, board.read(bus, fpga, 0xC0));
    board.advanceTo(8s);
    EXPECT_EQ(0x00, board.read(bus, fpga, 0x70) & 0x01);
    board.advanceTo(9s);
    EXPECT_EQ(0x01, board.read(bus, fpga, 0x70) & 0x01);
}

TEST_F(UbbFpgaRegisters, ReloadedImageStartsFromPowerOnRegisters)
{
    board.write(bus, fpga, {0x60, 0xBB});
    board.write(bus, fpga, {0x62, 0x00});
    board.drive("UBB_FPGA_PROG_B", 0);
    board.drive("UBB_FPGA_PROG_B", 1);
    board.advanceBy(2s);
    EXPECT_EQ(0x00, board.read(bus, fpga, 0x60));
    EXPECT_EQ(0x01, board.read(bus, fpga, 0x62));
    EXPECT_EQ(0x00, board.read(bus, fpga, 0x10)); // OAM mux back in reset
}

} // namespace
} // namespace ubbsim::test
