#include "board_harness.hpp"

#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

TEST(Buses, OpenFailsForBusesTheBoardDoesNotHave)
{
    BoardHarness board;
    for (int bus = 0; bus < 16; ++bus)
    {
        EXPECT_EQ(0, board.board().openBus(bus)) << bus;
    }
    EXPECT_EQ(-ENOENT, board.board().openBus(16));
    EXPECT_EQ(-ENOENT, board.board().openBus(-1));
}

TEST(Buses, AbsentDeviceAndNackFaultGiveTheKernelsErrors)
{
    Scenario scenario;
    scenario.faults.push_back(fault("nack", 2.0, 3.0));
    scenario.faults.back().bus = 14;
    scenario.faults.back().address = 0x4C;
    BoardHarness board(scenario);
    EXPECT_EQ(-ENXIO, board.read(14, 0x4D, 0x00));
    EXPECT_LE(0, board.read(14, 0x4C, 0x00));
    board.advanceTo(2s);
    EXPECT_EQ(-EREMOTEIO, board.read(14, 0x4C, 0x00));
    EXPECT_EQ(-ENXIO, board.read(14, 0x4D, 0x00));
    board.advanceTo(3s);
    EXPECT_LE(0, board.read(14, 0x4C, 0x00));
    EXPECT_EQ(3u, board.board().stats().i2cFailures);
}

TEST(Buses, TransferTakesItsBitsAt400kHz)
{
    BoardHarness board;
    SimTime before = board.now();
    board.write(14, 0x4C, {0x3B, 0x0E});
    // start, three bytes of nine clocks with the address, stop: 29 bits.
    EXPECT_EQ(before + 29 * 2500ns, board.now());
}

TEST(Rms, SixteenBitOffsetsOnEachOamsBus)
{
    Scenario scenario;
    scenario.oams[7].present = false; // RMs sit on the UBB all the same
    scenario.faults.push_back(fault("efuse"));
    scenario.faults.back().oam = 7;
    scenario.faults.back().value = 0x5A;
    BoardHarness board(scenario);
    EXPECT_EQ(0x01, board.readRm(5, 0xF24E)); // injection disabled
    ASSERT_EQ(0, board.write(5, 0x56, {0xF2, 0x4E, 0x00}));
    EXPECT_EQ(0x00, board.readRm(5, 0xF24E));
    EXPECT_EQ(0x01, board.readRm(6, 0xF24E)); // another OAM's RM
    EXPECT_EQ(0x00, board.readRm(5, 0xF24B));
    EXPECT_EQ(0x5A, board.readRm(0, 0xF24B)); // OAM 7 is on bus 0
    EXPECT_EQ(-ENXIO, board.readRm(12, 0xF24B));
}

TEST(Sensors, EmcStoresItsConfigurationUnlessMisconfigured)
{
    BoardHarness good;
    good.write(14, 0x4C, {0x3B, 0x0E});
    EXPECT_EQ(0x0E, good.read(14, 0x4C, 0x3B));

    Scenario scenario;
    scenario.faults.push_back(fault("emcMisconfig"));
    scenario.faults.back().value = 0x0C;
    BoardHarness bad(scenario);
    bad.write(14, 0x4C, {0x3B, 0x0E});
    EXPECT_EQ(0x0C, bad.read(14, 0x4C, 0x3B));
}

TEST(IoExpanders, NackInResetAndLeaveItWithPowerOnRegisters)
{
    BoardHarness board;
    board.configureExpander();
    EXPECT_EQ(-EREMOTEIO, board.read(14, 0x20, 0x08));
    EXPECT_EQ(-EREMOTEIO, board.read(14, 0x27, 0x08));
    board.write(4, 0x25, {0x0A, 0x02});
    ASSERT_EQ(0, board.write(14, 0x20, {0x08, 0x63}));
    ASSERT_EQ(0, board.write(14, 0x27, {0x28, 0x80}));
    EXPECT_EQ(0x63, board.read(14, 0x20, 0x08));
    EXPECT_EQ(0x80, board.read(14, 0x27, 0x28));
    board.write(4, 0x25, {0x0A, 0x00});
    board.write(4, 0x25, {0x0A, 0x02});
    EXPECT_EQ(0x00, board.read(14, 0x20, 0x08));
}

TEST(HotswapControllers, SoaByteAndSenseWordLowByteFirst)
{
    BoardHarness board;
    ASSERT_EQ(0, board.write(4, 0x1C, {0xD1, 0x0A}));
    ASSERT_EQ(0, board.write(4, 0x1C, {0xD5, 0x67, 0xB4}));
    EXPECT_EQ(0x0A, board.read(4, 0x1C, 0xD1));
    std::vector<uint8_t> sense;
    board.readBlock(4, 0x1C, 0xD5, 2, sense);
    EXPECT_EQ((std::vector<uint8_t>{0x67, 0xB4}), sense);
    for (uint16_t address : {0x1E, 0x1D, 0x11, 0x13})
    {
        EXPECT_LE(0, board.read(4, address, 0xD1)) << address;
    }
}

} // namespace
} // namespace ubbsim::test
