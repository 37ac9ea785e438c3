#include "board_harness.hpp"

#include <thread>

#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

TEST(Waveform, VcdOfAStandbyBringUpIsWellFormed)
{
    BoardHarness board;
    board.bringUpStandby();
    board.bringUpBase(0xFF);
    Vcd vcd = Vcd::parse(writeAndRead(board.board()));
    for (const std::string& problem : vcd.problems)
    {
        ADD_FAILURE() << problem;
    }
    EXPECT_EQ(8, vcd.widths["host_pwr_good"]);
    EXPECT_EQ(1, vcd.widths["UBB_FPGA_PROG_B"]);
    EXPECT_EQ("11111111", vcd.at("module_pwr_good", board.now().count()));
    // Every signal has its value at time 0.
    for (const auto& [name, width] : vcd.widths)
    {
        EXPECT_FALSE(vcd.changes[name].empty()) << name;
        EXPECT_EQ(0, vcd.changes[name].front().at) << name;
    }
    // The program pulse: low for the second the bring-up held it.
    const auto& prog = vcd.changes["UBB_FPGA_PROG_B"];
    ASSERT_EQ(3u, prog.size());
    EXPECT_EQ(1'000'000'000, prog[2].at - prog[1].at);
}

TEST(WarmStart, BaseKeptOnLooksLikeARunningBoard)
{
    Scenario scenario;
    scenario.start = ResetKind::warm;
    scenario.baseWasOn = true;
    scenario.oams[5].present = false;
    BoardHarness board(scenario);
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

// The real clock: a fast board, a ticker and several threads on one bus.
TEST(ClockedBoard, TransfersOnOneBusFollowEachOther)
{
    SimClock clock(SimClock::startNow(1000, 0));
    std::unique_ptr<Board> board = makeBoard(Scenario{}, clock);
    std::vector<I2cSegment> probe{{0x4C, false, 0, {0x3B, 0x0E}}};
    SimTime each = 29 * 2500ns;

    constexpr int threads = 4;
    constexpr int rounds = 25;
    SimTime start = clock.now();
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
    {
        workers.emplace_back([&board, probe] {
            for (int i = 0; i < rounds; ++i)
            {
                auto segments = probe;
                EXPECT_EQ(0, board->transfer(14, segments, false));
            }
        });
    }
    for (std::thread& worker : workers)
    {
        worker.join();
    }
    EXPECT_GE(clock.now() - start, threads * rounds * each);
    EXPECT_EQ(uint64_t{threads * rounds}, board->stats().i2cTransfers);
}

} // namespace
} // namespace ubbsim::test
