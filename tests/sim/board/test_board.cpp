#include "board_harness.hpp"

#include <thread>

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

TEST(Buses, TransfersTakeTheirBitsAndFailAsTheKernelDoes)
{
    Scenario scenario;
    scenario.faults.push_back(fault("nack", 2.0, 3.0));
    scenario.faults.back().bus = 14;
    scenario.faults.back().address = 0x4C;
    BoardHarness board(scenario);
    // start, three bytes of nine clocks with the address, stop: 29 bits.
    board.write(14, 0x4C, {0x3B, 0x0E});
    EXPECT_EQ(SimTime(29 * 2500ns), board.now());

    EXPECT_EQ(-ENXIO, board.read(14, 0x4D, 0x00));
    EXPECT_LE(0, board.read(14, 0x4C, 0x00));
    board.advanceTo(2s);
    EXPECT_EQ(-EREMOTEIO, board.read(14, 0x4C, 0x00));
    EXPECT_EQ(-ENXIO, board.read(14, 0x4D, 0x00));
    board.advanceTo(3s);
    EXPECT_LE(0, board.read(14, 0x4C, 0x00));
    EXPECT_EQ(3u, board.board().stats().i2cFailures);
}

TEST(Buses, ExpandersNackInResetAndLeaveItWithPowerOnRegisters)
{
    BoardHarness board;
    board.configureExpander();
    EXPECT_EQ(-EREMOTEIO, board.read(14, 0x20, 0x08));
    EXPECT_EQ(-EREMOTEIO, board.read(14, 0x27, 0x08));
    board.write(expanderBus, expander, {0x0A, 0x02});
    ASSERT_EQ(0, board.write(14, 0x20, {0x08, 0x63}));
    ASSERT_EQ(0, board.write(14, 0x27, {0x28, 0x80}));
    EXPECT_EQ(0x63, board.read(14, 0x20, 0x08));
    EXPECT_EQ(0x80, board.read(14, 0x27, 0x28));
    board.write(expanderBus, expander, {0x0A, 0x00});
    board.write(expanderBus, expander, {0x0A, 0x02});
    EXPECT_EQ(0x00, board.read(14, 0x20, 0x08));
}

int request(Board& board, uint64_t owner, const std::string& line, bool output,
            uint32_t& handle, int value = 0)
{
    return board.requestLine(owner, line, "test", output, 0, value, handle);
}

TEST(Gpio, OneRequestHoldsALineAndOnlyItReadsOrDrives)
{
    BoardHarness harness;
    Board& board = harness.board();
    uint32_t first = 0;
    uint32_t second = 0;
    ASSERT_EQ(0, request(board, 1, "GPU_BASE_HMC_READY", true, first));
    EXPECT_EQ(-EBUSY, request(board, 2, "GPU_BASE_HMC_READY", false, second));
    EXPECT_EQ(0, board.releaseLine(first));
    EXPECT_EQ(0, request(board, 2, "GPU_BASE_HMC_READY", false, second));
    EXPECT_EQ(-ENOENT, request(board, 1, "NO_SUCH_LINE", false, first));
    EXPECT_FALSE(board.lineExists("NO_SUCH_LINE"));
    BoardStats stats = board.stats();
    EXPECT_EQ(1u, stats.gpioBusy);
    EXPECT_EQ(3u, stats.gpioRequests);

    uint32_t handle = 0;
    EXPECT_EQ(-EPERM, board.getLine(77));
    EXPECT_EQ(-EPERM, board.setLine(77, 1));
    ASSERT_EQ(0, request(board, 1, "GPU_BASE_PWR_GD", false, handle));
    EXPECT_EQ(-EPERM, board.setLine(handle, 1)); // held as an input
    board.releaseLine(handle);
    EXPECT_EQ(-EPERM, board.getLine(handle));
    EXPECT_EQ(-EINVAL, board.releaseLine(handle));
    // The board drives this one itself.
    EXPECT_EQ(-EPERM, request(board, 1, "HDT_DBREQ_L", true, handle));
}

TEST(Gpio, OwnerReleaseAndSmcResetGiveLinesBackAndKeepTheLevels)
{
    BoardHarness harness;
    Board& board = harness.board();
    uint32_t a = 0;
    uint32_t b = 0;
    uint32_t other = 0;
    ASSERT_EQ(0, request(board, 7, "GPU_BASE_FPGA_READY", true, a, 1));
    ASSERT_EQ(0, request(board, 7, "SMC_UBB_FLASH_AB_SEL", true, b, 1));
    ASSERT_EQ(0, request(board, 8, "GPU_BASE_PWR_GD", true, other, 1));
    board.releaseOwner(7);
    EXPECT_EQ(-EPERM, board.getLine(a));
    EXPECT_EQ(1, board.getLine(other));
    EXPECT_EQ(1, harness.level("GPU_BASE_FPGA_READY"));
    EXPECT_EQ(1, harness.level("SMC_UBB_FLASH_AB_SEL"));

    EXPECT_EQ(0x00000001u, board.resetReason());
    board.smcReset();
    EXPECT_EQ(0x1000u, board.resetReason() & 0x3000);
    EXPECT_EQ(-EPERM, board.getLine(other));
    EXPECT_EQ(1, harness.level("GPU_BASE_PWR_GD"));
}

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
    // The program pulse: low for the second the bring-up held it.
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
