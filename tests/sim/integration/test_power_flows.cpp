#include "sim_run_fixture.hpp"

#include "virtual/virtual_machine.hpp"

#include <filesystem>
#include <regex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

using ::testing::HasSubstr;
using ::testing::Not;

// Runs fast enough for a test, slow enough that a busy machine doesn't
// stretch a board second.
const std::vector<std::string> testSpeed = {"--speed", "20"};

SimRun run(const std::string& scenario)
{
    SimRun result = runSim(scenario, testSpeed);
    EXPECT_EQ(result.status, 0) << result.console;
    return result;
}

// Texts of the event log entries with this id, in order.
std::vector<std::string> texts(const SimRun& sim, const std::string& id)
{
    std::vector<std::string> out;
    for (const auto& event : sim.eventsWithId(id))
    {
        std::string message = event.value("message", "");
        auto cut = message.find("] ");
        out.push_back(cut == std::string::npos ? message
                                               : message.substr(cut + 2));
    }
    return out;
}

bool hasEvent(const SimRun& sim, const std::string& id, const std::string& text)
{
    for (const auto& seen : texts(sim, id))
    {
        if (seen.find(text) != std::string::npos)
        {
            return true;
        }
    }
    return false;
}

constexpr const char* unexpected = "OrvaneSvcUnexpected";

TEST(PowerFlow, NominalBootRunsEveryStageInOrder)
{
    SimRun sim = run("nominal");
    std::regex prefix(R"(^\(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\) \[INFO )"
                      R"("boot_driver\.cpp":\d+\] \*\*\* Enter Boot )"
                      R"(Critical Section\. \*\*\*\n)");
    EXPECT_TRUE(std::regex_search(sim.trail, prefix,
                                  std::regex_constants::match_continuous))
        << sim.trail.substr(0, 200);
    EXPECT_THAT(sim.trail, HasSubstr("|                             Boot  "
                                     "Time                           |"));
    EXPECT_THAT(sim.console, HasSubstr("== ubb-sim: scenario nominal"));
    EXPECT_THAT(sim.console, HasSubstr("events raised:"));
    for (const char* step :
         {"HMC Ready signal asserted", "FPGA rail is on", "UBB FPGA configured",
          "No mixed OAM or UBB found.", "FPGA Ready signal asserted",
          "Base Power Enable Received",
          "Hotswap controller Power good Received",
          "Module Power good Received", "Base power good signal asserted",
          "UBB Unplugged from HGX host"})
    {
        EXPECT_EQ(sim.trailCount(step), 1) << step;
    }
    EXPECT_THAT(texts(sim, "ResourceEvent.1.2.1.ResourcePoweredOff"),
                ::testing::ElementsAre("Base powered off."));
    EXPECT_THAT(texts(sim, "ResourceEvent.1.2.1.ResourcePoweredOn"),
                ::testing::ElementsAre(
                    "UBB standby has powered on", "OAM standby has powered on",
                    "UBB base has powered on", "OAM base has powered on"));
    EXPECT_EQ(sim.powerStatus("StandbyPowerStatus"), "On");
    EXPECT_EQ(sim.powerStatus("BasePowerStatus"), "Off");
    EXPECT_EQ(sim.orvaneProperty("SecureBoot_Status", "Status"), "Success");
    EXPECT_EQ(sim.trailCount("Print DebugTraceLog again."), 1);

    // The sequence as a logic analyser sees it, the host's enable at the
    // scenario's times.
    EXPECT_NEAR(sim.firstChange("GPU_BASE_PWR_EN", "1"), 40.0, 0.01);
    EXPECT_NEAR(sim.firstChange("GPU_BASE_PWR_EN", "0"), 90.0, 0.01);
    std::vector<std::pair<std::string, std::string>> order = {
        {"GPU_BASE_HMC_READY", "1"},
        {"pg_VCCINT_FPGA", "1"},
        {"HDT_DBREQ_L", "1"},
        {"pg_0V9_AD_RT01", "1"},
        {"pg_P3V3_OAM_03", "1"},
        {"GPU_BASE_FPGA_READY", "1"},
        {"GPU_BASE_PWR_EN", "1"},
        {"hs_pg", "1"},
        {"GPU_BASE_PWR_GD", "1"},
        {"GPU_BASE_PWR_EN", "0"},
        {"hs_en", "0"},
        {"GPU_BASE_PWR_GD", "0"},
    };
    double previous = 0;
    for (const auto& [signal, value] : order)
    {
        double at = sim.firstChange(signal, value);
        EXPECT_GT(at, previous) << signal << " -> " << value;
        previous = at;
    }
}

TEST(PowerFlow, WarmResetTakesOverWithoutTouchingTheRails)
{
    SimRun sim = run("warm-reset");
    EXPECT_THAT(sim.trail, HasSubstr("Warm reset detected, checking OAM "
                                     "power-good"));
    EXPECT_THAT(sim.trail, HasSubstr("Skip Stby_Pwr_on_Sqnc,because power "
                                     "good is assert."));
    EXPECT_THAT(sim.trail, HasSubstr("Skip Base_Pwr_on_Sqnc,because power "
                                     "good is assert."));
    EXPECT_LT(sim.firstChange("en_VCCINT_FPGA", "0"), 0);
    EXPECT_LT(sim.firstChange("UBB_FPGA_PROG_B", "0"), 0);
    EXPECT_EQ(sim.powerStatus("BasePowerStatus"), "On");
    // Board power stayed up: the FPGA answers with every module good, and
    // no read failed.
    EXPECT_THAT(sim.trail,
                HasSubstr("Module Power Good Register 0x61 value is ff"));
    for (const auto& event : sim.events)
    {
        EXPECT_NE(event.value("call", ""), "i2cLog") << event.dump();
    }
}

TEST(PowerFlow, SmcResetUnderPowerAndDaemonRespawn)
{
    // An SMC reset: the new daemon sees a warm reset with power good.
    SimRun warm = run("warm-restart");
    EXPECT_THAT(warm.console, HasSubstr("started 2 time(s)"));
    EXPECT_EQ(warm.trailCount("Skip Stby_Pwr_on_Sqnc,because power good is "
                              "assert."),
              1);
    EXPECT_EQ(warm.trailCount("Base power good signal asserted"), 1);
    EXPECT_EQ(warm.powerStatus("BasePowerStatus"), "On");

    // The daemon alone restarted: the reset reason is still cold, the FPGA
    // not configured as far as it knows, and it runs the whole sequence.
    SimRun cold = run("daemon-respawn");
    EXPECT_EQ(cold.trailCount("Enter Boot Critical Section"), 2);
    EXPECT_EQ(cold.trailCount("Skip Stby_Pwr_on_Sqnc"), 0);
    EXPECT_EQ(cold.trailCount("UBB FPGA configured"), 2);
}

TEST(PowerFlow, RailWithoutPowerGoodStopsStandby)
{
    SimRun sim = run("rail-fail");
    EXPECT_TRUE(hasEvent(sim, unexpected,
                         "Power Sequence: [Standby power-on] FPGA rail "
                         "fail."));
    EXPECT_THAT(sim.trail, HasSubstr("Standby power sequence 1 error"));
    EXPECT_THAT(sim.trail, HasSubstr("Power Sequence Stop"));
    EXPECT_LT(sim.firstChange("GPU_BASE_FPGA_READY", "1"), 0);
}

TEST(PowerFlow, HotswapMissOnceIsResequenced)
{
    SimRun sim = run("hotswap-once");
    EXPECT_TRUE(hasEvent(sim, unexpected,
                         "Power Sequence: [Base power-on] Fail to receive "
                         "Hotswap controller Power good."));
    EXPECT_THAT(texts(sim, unexpected),
                ::testing::Contains("Power Sequence: Re-sequence 1..."));
    EXPECT_EQ(sim.trailCount("Base power good signal asserted"), 1);
    EXPECT_GT(sim.firstChange("GPU_BASE_PWR_GD", "1"), 0);
}

TEST(PowerFlow, LostModulePowerGoodCyclesBasePower)
{
    SimRun sim = run("module-good-lost");
    EXPECT_TRUE(hasEvent(sim, "PowerDownRequest",
                         "Base Power down request from power monitor."));
    EXPECT_TRUE(std::filesystem::exists(
        sim.outDir / "root/run/initramfs/log_nv/vr_fault_decode.out"));
    EXPECT_THAT(texts(sim, "ResourceEvent.1.2.1.ResourcePoweredOff"),
                ::testing::Contains("Base powered off."));
    // Once the module is good again a re-sequence brings base power back.
    EXPECT_EQ(sim.trailCount("Base power good signal asserted"), 2);
    EXPECT_EQ(sim.powerStatus("BasePowerStatus"), "On");
}

TEST(PowerFlow, LostFpgaRailIsReportedAndPowerStays)
{
    SimRun sim = run("fpga-rail-lost");
    EXPECT_THAT(sim.trail,
                HasSubstr("PWRMON_PwrGd_Chk VCCAUX_FPGA power good fail"));
    bool critical = false;
    for (const auto& event : sim.events)
    {
        critical |= event.value("id", "") == "UBBPowerStatusCritical";
    }
    EXPECT_TRUE(critical);
    EXPECT_EQ(sim.powerStatus("BasePowerStatus"), "On");
    EXPECT_TRUE(texts(sim, "ResourceEvent.1.2.1.ResourcePoweredOff").empty());
}

TEST(PowerFlow, OamCountAndProductsChooseTheTopology)
{
    SimRun seven = run("seven-oams");
    EXPECT_THAT(seven.trail, HasSubstr("Driving Link Config 1G"));
    EXPECT_TRUE(hasEvent(seven, "Base.1.8.1.ResourceNotFound",
                         "OAM7 physically missing."));
    EXPECT_EQ(seven.trailCount("Base power good signal asserted"), 1);

    SimRun none = run("no-oam");
    EXPECT_THAT(none.trail, HasSubstr("OAM PRSNT not detected"));
    EXPECT_THAT(none.trail, HasSubstr("PERST released"));
    EXPECT_LT(none.firstChange("hs_en", "1"), 0);
    // The monitor watches the hotswap power good of a bare board too, and
    // takes base power down when it finds none.
    EXPECT_THAT(none.trail, HasSubstr("PowerMonitor Hotswap controller "
                                      "fail."));

    // An unknown UBB differs from every OAM but the first, so the product
    // check stops the boot before the expanders are ever asked for a
    // topology.
    SimRun unknown = run("ubb-unknown");
    EXPECT_EQ(unknown.trailCount("Different product with UBB."), 7);
    EXPECT_THAT(unknown.trail, HasSubstr("Standby power sequence 2 error"));
    EXPECT_EQ(unknown.eventsWithId("BootFailure").size(), 1U);
    EXPECT_LT(unknown.firstChange("GPU_BASE_FPGA_READY", "1"), 0);
}

TEST(PowerFlow, FpgaActivationTimeoutOnceThenTwice)
{
    SimRun once = run("fpga-timeout");
    EXPECT_EQ(once.eventsWithId("FPGAActivationTimeout").size(), 1U);
    EXPECT_EQ(once.trailCount("UBB FPGA configured"), 1);

    SimRun twice = run("fpga-timeout-twice");
    EXPECT_EQ(twice.eventsWithId("FPGAActivationTimeoutInARow").size(), 1U);
    EXPECT_THAT(twice.trail, HasSubstr("UBB FPGA configed fail"));
    EXPECT_THAT(twice.trail, HasSubstr("Standby power sequence 2 error"));
    EXPECT_EQ(twice.eventsWithId("BootFailure").size(), 1U);
    EXPECT_LT(twice.firstChange("GPU_BASE_FPGA_READY", "1"), 0);
}

TEST(PowerFlow, EfuseFaultEndsTheRetryLoop)
{
    SimRun sim = run("efuse");
    EXPECT_THAT(sim.trail, HasSubstr("RM2 detect the eFuse state fault"));
    EXPECT_THAT(sim.trail, HasSubstr("An eFuse status fault is detected, "
                                     "aborting the power sequence retry "
                                     "loop."));
    EXPECT_EQ(sim.trailCount("Power Sequence Stop"), 1);
}

TEST(PowerFlow, ServerResetAndUnplugWhileRunning)
{
    SimRun reset = run("server-reset");
    EXPECT_THAT(reset.trail, HasSubstr("Server reset detected"));
    EXPECT_EQ(reset.powerStatus("ServerResetStatus"), "False");
    EXPECT_EQ(reset.powerStatus("BasePowerStatus"), "On");

    SimRun unplug = run("unplug");
    EXPECT_EQ(unplug.trailCount("UBB Unplugged from HGX host"), 1);
    EXPECT_TRUE(hasEvent(unplug, "PowerDownRequest",
                         "Base Power down request from rack manager."));
    // Plugged in again with the enable still high: base power comes back.
    EXPECT_EQ(unplug.trailCount("Base power good signal asserted"), 2);
}

TEST(SecureBoot, DeadErotLinkHaltsForRecoveryWhileTheBusServes)
{
    SimRun sim = run("erot-dead-link");
    EXPECT_EQ(sim.eventsWithId("BootFailure").size(), 1U);
    EXPECT_EQ(sim.trailCount("*** Leave Boot Critical Section. ***"), 1);
    EXPECT_EQ(sim.trailCount("Retry eRot API (4/4)"), 2);
    // busctl read the halted daemon's objects at the end of the run.
    EXPECT_EQ(sim.orvaneProperty("SecureBoot_Status", "Status"),
              "ManualRecovery");
    EXPECT_EQ(sim.powerStatus("BasePowerStatus"), "Off");
    EXPECT_LT(sim.firstChange("GPU_BASE_FPGA_READY", "1"), 0);
    EXPECT_LT(sim.firstChange("UBB_FPGA_PROG_B", "0"), 0);
}

TEST(SimScenario, BusyEnableLineGoesToTheJournal)
{
    auto path = writeScenario(
        "busy",
        {{"name", "busy"},
         {"host", {{{"at", 0}, {"action", "enable"}}}},
         {"faults",
          {{{"kind", "gpioBusy"}, {"line", "GPU_BASE_PWR_EN"}, {"at", 0}}}},
         {"end", 30}});
    // Real speed: the 10,000 requests of a busy read are 10,000 round
    // trips to the board, which a sanitizer build makes slow.
    SimRun sim = runSim(path, {"--real-time"});
    ASSERT_EQ(sim.status, 0) << sim.console;
    ASSERT_FALSE(sim.journal.empty());
    EXPECT_EQ(sim.journal[0].value("message", ""),
              "Error setting gpio as Input GPU_BASE_PWR_EN");
    EXPECT_EQ(sim.journal[0].value("line", 0), 811);
    EXPECT_EQ(sim.journal[0].value("priority", 0), 3);
    EXPECT_THAT(sim.trail, Not(HasSubstr("Boot  Time")));
}

TEST(SimScenario, InvalidScenarioNamesTheField)
{
    auto path = writeScenario(
        "bad", {{"name", "bad"},
                {"faults", {{{"kind", "railNoPowerGood"}, {"rail", "VCC"}}}}});
    SimRun sim = runSim(path, testSpeed);
    EXPECT_NE(sim.status, 0);
    EXPECT_THAT(sim.console, HasSubstr("faults[0].rail"));
    EXPECT_THAT(sim.trail, Not(HasSubstr("Enter Boot")));
}

const std::string pathPrefix = "PATH='/sim/usr/sbin:/sim/usr/bin:'\"$PATH\"; ";

TEST(VirtualShell, BoardPathsMoveUnderTheRootAndToolsStayTheMachines)
{
    VirtualShell shell("/sim");
    EXPECT_EQ(shell.rewrite("/usr/share/images/rm_recovery.sh 2>&1 | tee "
                            "/run/initramfs/log_nv/rm_recovery.log"),
              pathPrefix + "/sim/usr/share/images/rm_recovery.sh 2>&1 | tee "
                           "/sim/run/initramfs/log_nv/rm_recovery.log");
    EXPECT_EQ(shell.rewrite("echo 1e631000.spi "
                            ">/sys/bus/platform/drivers/aspeed-smc/unbind"),
              pathPrefix + "echo 1e631000.spi "
                           ">/sim/sys/bus/platform/drivers/aspeed-smc/unbind");
    EXPECT_EQ(shell.rewrite("dd if=/dev/mtd0 of=/tmp/A/smc.bin bs=512"),
              pathPrefix + "dd if=/sim/dev/mtd0 of=/sim/tmp/A/smc.bin bs=512");
    // busctl and the shell itself are the machine's; so are paths that
    // only contain a board prefix further in.
    EXPECT_EQ(shell.rewrite("busctl call xyz.openbmc_project.FruDevice "
                            "/xyz/openbmc_project/FruDevice x ReScan"),
              pathPrefix + "busctl call xyz.openbmc_project.FruDevice "
                           "/xyz/openbmc_project/FruDevice x ReScan");
    EXPECT_EQ(shell.rewrite("/bin/echo /opt/run/x"),
              pathPrefix + "/bin/echo /opt/run/x");
    EXPECT_EQ(shell.rewrite("/usr/bin/VR_fault_dump-v0.9.1.sh 2>&1"),
              pathPrefix + "/sim/usr/bin/VR_fault_dump-v0.9.1.sh 2>&1");
}

} // namespace
} // namespace ubbsim::test
