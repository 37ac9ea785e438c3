#include "board_harness.hpp"

#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

Scenario warm(bool baseWasOn)
{
    Scenario scenario;
    scenario.start = ResetKind::warm;
    scenario.baseWasOn = baseWasOn;
    scenario.oams[5].present = false;
    return scenario;
}

TEST(WarmStart, ColdBoardStartsWithNothingOn)
{
    BoardHarness board;
    EXPECT_EQ(0x00000001u, board.board().resetReason());
    EXPECT_EQ(0x7F, board.read(4, 0x25, 0x01));
    EXPECT_EQ(-EREMOTEIO, board.read(3, 0x56, 0x63));
    EXPECT_EQ(0, board.level("HDT_DBREQ_L"));
}

TEST(WarmStart, BaseKeptOnLooksLikeARunningBoard)
{
    BoardHarness board(warm(true));
    EXPECT_EQ(0x1000u, board.board().resetReason() & 0x3000);
    EXPECT_EQ(0xFF, board.read(4, 0x25, 0x03));
    EXPECT_EQ(0xFD, board.read(4, 0x25, 0x04));
    EXPECT_EQ(0x20, board.read(3, 0x56, 0x63));
    EXPECT_EQ(0xDF, board.read(3, 0x56, 0x60));
    EXPECT_EQ(0xDF, board.read(3, 0x56, 0x61));
    EXPECT_EQ(0xFF, board.read(3, 0x56, 0xC0));
    EXPECT_EQ(0x0F, board.read(14, 0x27, 0x04) & 0x0F);
    EXPECT_EQ(0x0E, board.read(14, 0x4C, 0x3B));
    EXPECT_EQ(0, board.write(2, 0x70, {0x01}));
    EXPECT_EQ(1, board.level("GPU_BASE_PWR_EN"));
    EXPECT_EQ(1, board.level("HDT_DBREQ_L"));

    // Nothing ramps at start: the waveform shows the state from time 0.
    board.advanceBy(1s);
    Vcd vcd = Vcd::parse(writeAndRead(board.board()));
    EXPECT_EQ(1u, vcd.changes["hs_pg"].size());
    EXPECT_EQ(1u, vcd.changes["module_pwr_good"].size());
}

TEST(WarmStart, StandbyOnlyLeavesBaseOff)
{
    BoardHarness board(warm(false));
    EXPECT_EQ(0xFD, board.read(4, 0x25, 0x04));
    EXPECT_EQ(0x00, board.read(3, 0x56, 0x60));
    EXPECT_EQ(0x00, board.read(3, 0x56, 0x61));
    EXPECT_EQ(-EREMOTEIO, board.read(14, 0x27, 0x04)); // expanders in reset
    EXPECT_EQ(0, board.level("GPU_BASE_PWR_EN"));
}

TEST(WarmStart, SummaryTellsTheStatesReached)
{
    BoardHarness board(warm(true));
    std::vector<std::string> lines = board.board().summary();
    ASSERT_EQ(4u, lines.size());
    EXPECT_EQ("standby rails: FPGA on, retimer on, k517 on, OAM on", lines[0]);
    EXPECT_NE(std::string::npos, lines[1].find("configured"));
    EXPECT_NE(std::string::npos,
              lines[2].find("module power good 0xdf, present 0xdf"));
    EXPECT_NE(std::string::npos, lines[3].find("GPU_BASE_PWR_EN=1"));
}

} // namespace
} // namespace ubbsim::test
