#include "board_harness.hpp"

#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

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
        scenario.oams[4].present = false;
        scenario.oams[1].ibcAddress = 0x1F;
        scenario.oams[3].dacValue = 0xE002;
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

TEST_F(OamMuxTest, RoutesToTheOneSelectedPresentOam)
{
    std::vector<uint8_t> block;
    select(0x08);
    ASSERT_EQ(0, board.readBlock(bus, dac, 0x60, 5, block));
    EXPECT_EQ(0x02, block.at(3));
    EXPECT_EQ(0xE0, block.at(4));
    select(0x01);
    ASSERT_EQ(0, board.readBlock(bus, dac, 0x60, 5, block));
    EXPECT_EQ(0x04, block.at(3)); // the default setting
    EXPECT_EQ(0x06, block.at(4));

    select(0x00);
    EXPECT_EQ(-ENXIO, board.read(bus, dac, 0x60));
    select(0x09);
    EXPECT_EQ(-ENXIO, board.read(bus, dac, 0x60));
    select(0x10); // slot 4 is empty
    EXPECT_EQ(-ENXIO, board.read(bus, dac, 0x60));
}

TEST_F(OamMuxTest, OamDevicesNeedTheirStandbyRail)
{
    board.write(4, 0x25, {0x09, 0x04}); // P3V3_OAM_47 off
    select(0x01);
    EXPECT_LE(0, board.read(bus, dac, 0x60));
    select(0x80);
    EXPECT_EQ(-EREMOTEIO, board.read(bus, dac, 0x60));
}

TEST_F(OamMuxTest, DacWriteReadsBackAsTheSettingItEncodes)
{
    // The daemon's correction words for the two products it knows.
    std::vector<uint8_t> block;
    select(0x08);
    ASSERT_EQ(0, board.write(bus, dac, {0x60, 0x40, 0x60}));
    board.readBlock(bus, dac, 0x60, 5, block);
    EXPECT_EQ(0x0604, block.at(3) | block.at(4) << 8);
    ASSERT_EQ(0, board.write(bus, dac, {0x60, 0x2E, 0x00}));
    board.readBlock(bus, dac, 0x60, 5, block);
    EXPECT_EQ(0xE002, block.at(3) | block.at(4) << 8);
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
