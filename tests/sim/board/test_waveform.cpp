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

TEST(ClockedBoard, FpgaActivatesOnBoardTime)
{
    SimClock clock(SimClock::startNow(1000, 0));
    std::unique_ptr<Board> board = makeBoard(Scenario{}, clock);
    auto write = [&](uint8_t reg, uint8_t value) {
        std::vector<I2cSegment> segments{{0x25, false, 0, {reg, value}}};
        return board->transfer(4, segments, false);
    };
    for (auto [reg, value] : directions)
    {
        write(reg, value);
    }
    write(0x08, 0x1F);
    clock.sleepFor(50ms);
    uint32_t handle = 0;
    ASSERT_EQ(
        0, board->requestLine(1, "UBB_FPGA_PROG_B", "t", true, 0, 0, handle));
    board->setLine(handle, 1);
    SimTime pulse = clock.now();
    board->releaseLine(handle);

    uint32_t ready = 0;
    ASSERT_EQ(0, board->requestLine(1, "HDT_DBREQ_L", "t", false, 0, 0, ready));
    while (board->getLine(ready) == 0 && clock.now() < pulse + 10s)
    {
        clock.sleepFor(10ms);
        board->advance();
    }
    EXPECT_EQ(1, board->getLine(ready));
    EXPECT_GE(clock.now() - pulse, 1500ms);
}

} // namespace
} // namespace ubbsim::test
