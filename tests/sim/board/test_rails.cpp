#include "board_harness.hpp"

#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

constexpr int bus = 4;
constexpr uint16_t expander = 0x25;

class RailTest : public ::testing::Test
{
  protected:
    void enable(uint8_t bank, uint8_t bits)
    {
        ASSERT_EQ(0, board.write(bus, expander, {bank, bits}));
    }
    int status(uint8_t reg)
    {
        return board.read(bus, expander, reg);
    }

    BoardHarness board;
};

TEST_F(RailTest, PowerGoodFollowsEnableAfterTheRailsDelay)
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
}

TEST_F(RailTest, EdgeIsRecordedWhenDueNotWhenLookedAt)
{
    board.configureExpander();
    board.advanceTo(2s);
    SimTime enabledAt = board.now();
    enable(0x09, 0x04);              // P3V3_OAM_03: 25 ms
    board.advanceTo(enabledAt + 5s); // nobody looks in between

    Vcd vcd = Vcd::parse(writeAndRead(board.board()));
    ASSERT_TRUE(vcd.problems.empty()) << vcd.problems.front();
    int64_t due = (enabledAt + 25ms).count();
    EXPECT_EQ("0", vcd.at("pg_P3V3_OAM_03", due - 1));
    EXPECT_EQ("1", vcd.at("pg_P3V3_OAM_03", due));
    EXPECT_EQ("1", vcd.at("en_P3V3_OAM_03", enabledAt.count()));
}

TEST_F(RailTest, DisableDropsPowerGoodAtOnceAndCancelsARisingEdge)
{
    board.configureExpander();
    enable(0x0A, 0x40); // 0V9_AD_RT01: good bit 0x04 of register 0x03
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

TEST_F(RailTest, PinsConfiguredAsInputsDriveNoRail)
{
    enable(0x08, 0x1F); // direction registers still at their power-on 0xFF
    board.advanceBy(100ms);
    EXPECT_EQ(0x7F, status(0x01));
    EXPECT_EQ(0x1F, status(0x08));
}

TEST(RailFitting, K517RailsReadGoodOnlyWhenTheBoardHasNone)
{
    Scenario without;
    without.k517 = false;
    BoardHarness plain(without);
    plain.configureExpander();
    EXPECT_EQ(0x01, plain.read(bus, expander, 0x02) & 0x01);
    EXPECT_EQ(0x04, plain.read(bus, expander, 0x04) & 0x04);

    BoardHarness fitted;
    fitted.configureExpander();
    EXPECT_EQ(0, fitted.read(bus, expander, 0x02) & 0x01);
    fitted.write(bus, expander, {0x0B, 0x30});
    fitted.advanceBy(20ms);
    EXPECT_EQ(0x01, fitted.read(bus, expander, 0x02) & 0x01);
    EXPECT_EQ(0x04, fitted.read(bus, expander, 0x04) & 0x04);
}

} // namespace
} // namespace ubbsim::test
