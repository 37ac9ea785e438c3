#include "board_harness.hpp"

#include <thread>

#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

void pulseProgram(BoardHarness& board, SimTime low = 0s)
{
    board.drive("UBB_FPGA_PROG_B", 0);
    board.advanceBy(low);
    board.drive("UBB_FPGA_PROG_B", 1);
}

TEST(UbbFpga, LoadsOnAProgramPulseWithRailsAndFlashAndAnswersOnlyThen)
{
    BoardHarness unpowered;
    pulseProgram(unpowered);
    unpowered.advanceBy(20s);
    EXPECT_EQ(0, unpowered.level("HDT_DBREQ_L"));
    EXPECT_EQ(-EREMOTEIO, unpowered.read(fpgaBus, fpga, 0x63));

    // FPGA rails on and good, the image not loaded.
    BoardHarness board;
    board.configureExpander();
    board.write(expanderBus, expander, {0x08, 0x1F});
    board.advanceBy(20ms);
    EXPECT_EQ(-EREMOTEIO, board.read(fpgaBus, fpga, 0x63));
    // Nothing loads while the SMC holds the flash.
    board.drive("SMC_UBB_FPGA_SPI_SEL", 1);
    pulseProgram(board);
    board.advanceBy(20s);
    EXPECT_EQ(0, board.level("HDT_DBREQ_L"));

    board.drive("SMC_UBB_FPGA_SPI_SEL", 0);
    pulseProgram(board, 1s);
    // From the rising edge, not the end of the calls that drove it; a look
    // at the line takes microseconds of its own.
    SimTime pulse(board.waveform().changes["UBB_FPGA_PROG_B"].back().at);
    board.advanceTo(pulse + 1500ms - 100us);
    EXPECT_EQ(0, board.level("HDT_DBREQ_L"));
    EXPECT_EQ(-EREMOTEIO, board.read(fpgaBus, fpga, 0x63));
    board.advanceTo(pulse + 1500ms);
    EXPECT_EQ(1, board.level("HDT_DBREQ_L"));
    EXPECT_EQ(0x00, board.read(fpgaBus, fpga, 0x63));

    // PROG_B low clears the image at once.
    board.drive("UBB_FPGA_PROG_B", 0);
    EXPECT_EQ(0, board.level("HDT_DBREQ_L"));
    EXPECT_EQ(-EREMOTEIO, board.read(fpgaBus, fpga, 0x63));
}

TEST(UbbFpga, RegistersReportTheOamsAndHostAndResetWithTheImage)
{
    Scenario scenario;
    scenario.oams[2].present = false;
    scenario.oams[6].present = false;
    scenario.host.push_back({8.0, HostAction::Kind::serverReset});
    scenario.host.push_back({9.0, HostAction::Kind::serverResetRelease});
    scenario.faults.push_back(fault("ctf", 5.0, 6.0));
    scenario.faults.back().oam = 3;
    BoardHarness board(scenario);
    board.bringUpStandby();
    auto reg = [&](uint8_t address) {
        return board.read(fpgaBus, fpga, address);
    };

    EXPECT_EQ(0x44, reg(0x63)); // slots 2 and 6 empty
    EXPECT_EQ(0xFF, reg(0xC0));
    EXPECT_EQ(0x01, reg(0x70) & 0x01);
    EXPECT_EQ(0x00, reg(0x61));
    // Registers that report inputs ignore writes; the others store.
    for (auto [address, value] : {std::pair<uint8_t, uint8_t>{0x63, 0x00},
                                  {0xC0, 0x00},
                                  {0x91, 0x10},
                                  {0xB0, 0xFF}})
    {
        board.write(fpgaBus, fpga, {address, value});
    }
    EXPECT_EQ(0x44, reg(0x63));
    EXPECT_EQ(0xFF, reg(0xC0));
    EXPECT_EQ(0x10, reg(0x91));
    EXPECT_EQ(0xFF, reg(0xB0));

    board.advanceTo(5s);
    EXPECT_EQ(0xF7, reg(0xC0));
    board.advanceTo(6s);
    EXPECT_EQ(0xFF, reg(0xC0));
    board.advanceTo(8s);
    EXPECT_EQ(0x00, reg(0x70) & 0x01);
    board.advanceTo(9s);
    EXPECT_EQ(0x01, reg(0x70) & 0x01);

    // A reloaded image starts from the power-on values.
    board.write(fpgaBus, fpga, {0x60, 0xBB});
    board.write(fpgaBus, fpga, {0x62, 0x00});
    pulseProgram(board);
    board.advanceBy(2s);
    EXPECT_EQ(0x00, reg(0x60));
    EXPECT_EQ(0x01, reg(0x62));
    EXPECT_EQ(0x00, reg(0x10)); // OAM mux back in reset
}

TEST(WarmStart, BaseKeptOnLooksLikeARunningBoard)
{
    Scenario scenario;
    scenario.start = ResetKind::warm;
    scenario.baseWasOn = true;
    scenario.oams[5].present = false;
    BoardHarness board(scenario);
    EXPECT_EQ(0x1000u, board.board().resetReason() & 0x3000);
    EXPECT_EQ(0xFF, board.read(expanderBus, expander, 0x03));
    EXPECT_EQ(0xFD, board.read(expanderBus, expander, 0x04));
    EXPECT_EQ(0xDF, board.read(fpgaBus, fpga, 0x60));
    EXPECT_EQ(0xDF, board.read(fpgaBus, fpga, 0x61));
    EXPECT_EQ(0x0F, board.read(14, 0x27, 0x04) & 0x0F);
    EXPECT_EQ(0x0E, board.read(14, 0x4C, 0x3B));
    EXPECT_EQ(0, board.write(2, 0x70, {0x01}));
    EXPECT_EQ(1, board.level("GPU_BASE_PWR_EN"));
    EXPECT_EQ(1, board.level("HDT_DBREQ_L"));

    // Nothing ramps at start: the waveform shows the state from time 0.
    board.advanceBy(1s);
    Vcd vcd = board.waveform();
    EXPECT_EQ(1u, vcd.changes["hs_pg"].size());
    EXPECT_EQ(1u, vcd.changes["module_pwr_good"].size());
}

TEST(Waveform, VcdOfABringUpIsWellFormedWithEdgesWhenDue)
{
    BoardHarness board;
    board.bringUpStandby();
    board.write(expanderBus, expander, {0x0A, 0xFE});
    board.write(expanderBus, expander, {0x09, 0x07});
    board.advanceBy(1s);
    board.write(fpgaBus, fpga, {0x60, 0xFF});
    board.advanceBy(1s);
    Vcd vcd = board.waveform();
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
    // The program pulse: low for the second the bring-up held it, and the
    // microseconds that driving the line takes.
    const auto& prog = vcd.changes["UBB_FPGA_PROG_B"];
    ASSERT_EQ(3u, prog.size());
    EXPECT_NEAR(1'000'000'000, prog[2].at - prog[1].at, 20'000);
    // A rail's good is recorded when it was due (25 ms after its enable),
    // not when the board was next looked at.
    int64_t enabled = vcd.firstChangeTo("en_P3V3_OAM_03", "1");
    ASSERT_GT(enabled, 0);
    EXPECT_EQ(enabled + SimTime(25ms).count(),
              vcd.firstChangeTo("pg_P3V3_OAM_03", "1"));
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
