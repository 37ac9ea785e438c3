// Whole ubb-sim runs of the virtual daemon against the simulated board.

#include "json_lines.hpp"
#include "sim_runs.hpp"

#include "common/vcd_reader.hpp"
#include "virtual/virtual_machine.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

namespace fs = std::filesystem;
using nlohmann::json;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* unexpected = "OrvaneSvcUnexpected";
constexpr const char* poweredOn = "ResourceEvent.1.2.1.ResourcePoweredOn";
constexpr const char* poweredOff = "ResourceEvent.1.2.1.ResourcePoweredOff";
constexpr const char* baseGood = "Base power good signal asserted";

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
          "Module Power good Received", baseGood,
          "UBB Unplugged from HGX host"})
    {
        EXPECT_EQ(sim.trailCount(step), 1) << step;
    }
    EXPECT_THAT(sim.texts(poweredOff), ElementsAre("Base powered off."));
    // The serial components come up before standby stage 2, the threaded
    // ones, in either order, after it.
    const char* const component = "The secure boot of the component ";
    std::vector<std::string> poweredOnTexts = sim.texts(poweredOn);
    ASSERT_EQ(poweredOnTexts.size(), 8U);
    std::sort(poweredOnTexts.begin() + 4, poweredOnTexts.begin() + 6);
    EXPECT_THAT(
        poweredOnTexts,
        ElementsAre(component + std::string("UBB_FPGA is completed."),
                    component + std::string("Retimer is completed."),
                    "UBB standby has powered on", "OAM standby has powered on",
                    component + std::string("IFWI is completed."),
                    component + std::string("RM is completed."),
                    "UBB base has powered on", "OAM base has powered on"));
    EXPECT_EQ(sim.powerStatus("StandbyPowerStatus"), "On");
    EXPECT_EQ(sim.powerStatus("BasePowerStatus"), "Off");
    EXPECT_EQ(sim.orvaneProperty("SecureBoot_Status", "Status"), "Success");
    EXPECT_EQ(sim.trailCount("Print DebugTraceLog again."), 1);
    // The boot time report has one row per verified component; the
    // regulators took none with their update off.
    for (const char* name : {"IFWI", "RM", "Retimer", "UBB_FPGA"})
    {
        EXPECT_EQ(sim.trailCount(std::string("*** The Component - ") + name +
                                 " verification took "),
                  1)
            << name;
    }
    EXPECT_EQ(sim.trailCount("*** The Component - VR "), 0);

    // The sequence as a logic analyser sees it, the host's enable at the
    // scenario's times.
    EXPECT_NEAR(sim.firstChange("GPU_BASE_PWR_EN", "1"), 40.0, 0.01);
    EXPECT_NEAR(sim.firstChange("GPU_BASE_PWR_EN", "0"), 90.0, 0.01);
    // Rising edges in order, then the falling ones ('!').
    const char* order[] = {
        "GPU_BASE_HMC_READY", "pg_VCCINT_FPGA", "HDT_DBREQ_L",
        "pg_0V9_AD_RT01",     "pg_P3V3_OAM_03", "GPU_BASE_FPGA_READY",
        "GPU_BASE_PWR_EN",    "hs_pg",          "GPU_BASE_PWR_GD",
        "!GPU_BASE_PWR_EN",   "!hs_en",         "!GPU_BASE_PWR_GD"};
    double previous = 0;
    for (std::string edge : order)
    {
        bool falls = edge[0] == '!';
        double at = sim.firstChange(edge.substr(falls), falls ? "0" : "1");
        EXPECT_GT(at, previous) << edge;
        previous = at;
    }
}

TEST(PowerFlow, WarmResetTakesOverWithoutTouchingTheRails)
{
    // With OAMs their power good says the board runs; a bare board has
    // only the reset reason to go by.
    const std::string bare =
        writeScenario("warm-bare", {{"start", "warm"},
                                    {"baseWasOn", true},
                                    {"oams", {{"present", json::array()}}},
                                    {"end", 40}});
    for (const std::string& scenario : {std::string("warm-reset"), bare})
    {
        SCOPED_TRACE(scenario);
        SimRun sim = run(scenario);
        for (const char* text :
             {"Warm reset detected, checking OAM power-good",
              "Skip Stby_Pwr_on_Sqnc,because power good is assert.",
              "Skip Base_Pwr_on_Sqnc,because power good is assert."})
        {
            EXPECT_THAT(sim.trail, HasSubstr(text));
        }
        // Board power stayed up: the FPGA answers with every module good.
        EXPECT_EQ(
            sim.trailCount("Module Power Good Register 0x61 value is ff") > 0,
            scenario != bare);
        EXPECT_LT(sim.firstChange("en_VCCINT_FPGA", "0"), 0);
        EXPECT_LT(sim.firstChange("SMC_FPGA_PROG_CTRL", "1"), 0);
        EXPECT_LT(sim.firstChange("UBB_FPGA_PROG_B", "0"), 0);
        EXPECT_EQ(sim.powerStatus("BasePowerStatus"), "On");
        // And no read failed.
        for (const auto& event : sim.events)
        {
            EXPECT_NE(event.value("call", ""), "i2cLog") << event.dump();
        }
    }
}

// The name on the bus makes the one instance that drives the board.
TEST(PowerFlow, SecondInstanceEndsWithoutTouchingTheBoard)
{
    SimRun sim = run(writeScenario(
        "second", {{"host", {{{"at", 40}, {"action", "enable"}}}},
                   {"daemon", {{{"at", 60}, {"action", "second"}}}},
                   {"end", 75}}));
    EXPECT_THAT(sim.console,
                HasSubstr("second daemon: exited with status 1; 0 board "
                          "requests"));
    EXPECT_THAT(slurp(sim.outDir / "trail-second.log"),
                HasSubstr("sd_bus_request_name: the bus name "
                          "xyz.openbmc_project.Orvane is not ours"));
    EXPECT_EQ(sim.powerStatus("StandbyPowerStatus"), "On");
    EXPECT_EQ(sim.powerStatus("BasePowerStatus"), "On");
}

TEST(PowerFlow, SmcResetUnderPowerAndDaemonRespawn)
{
    // An SMC reset: the new daemon sees a warm reset with power good.
    SimRun warm = run("warm-restart");
    EXPECT_THAT(warm.console, HasSubstr("started 2 time(s)"));
    EXPECT_EQ(warm.trailCount("Skip Stby_Pwr_on_Sqnc,because power good is "
                              "assert."),
              1);
    EXPECT_EQ(warm.trailCount(baseGood), 1);
    EXPECT_EQ(warm.powerStatus("BasePowerStatus"), "On");

    // The daemon alone restarted: the reset reason is still cold, so it
    // takes the host for off. Secure boot had finished, so it resets the
    // SMC, and the daemon after the reset runs the whole boot again.
    SimRun cold = run("daemon-respawn");
    EXPECT_EQ(cold.trailCount("Enter Boot Critical Section"), 3);
    EXPECT_EQ(cold.trailCount("Secure boot has finished. The host power is "
                              "OFF. Do SMC Reset!!"),
              1);
    EXPECT_EQ(cold.trailCount("== ubb-sim: SMC reset by the eRoT's system "
                              "reset; the SMC boots from flash A =="),
              1);
    EXPECT_EQ(cold.trailCount("Skip Stby_Pwr_on_Sqnc"), 0);
    EXPECT_EQ(cold.trailCount("UBB FPGA configured"), 2);
}

TEST(PowerFlow, RailWithoutPowerGoodStopsStandby)
{
    SimRun sim = run("rail-fail");
    EXPECT_THAT(
        sim.texts(unexpected),
        Contains(HasSubstr("Power Sequence: [Standby power-on] FPGA rail "
                           "fail.")));
    EXPECT_THAT(sim.trail, HasSubstr("Standby power sequence 1 error"));
    EXPECT_THAT(sim.trail, HasSubstr("Power Sequence Stop"));
    EXPECT_LT(sim.firstChange("GPU_BASE_FPGA_READY", "1"), 0);
}

TEST(PowerFlow, HotswapMissOnceIsResequenced)
{
    SimRun sim = run("hotswap-once");
    EXPECT_THAT(
        sim.texts(unexpected),
        Contains(HasSubstr("Power Sequence: [Base power-on] Fail to receive "
                           "Hotswap controller Power good.")));
    EXPECT_THAT(sim.texts(unexpected),
                Contains("Power Sequence: Re-sequence 1..."));
    EXPECT_EQ(sim.trailCount(baseGood), 1);
    EXPECT_GT(sim.firstChange("GPU_BASE_PWR_GD", "1"), 0);
}

// What the daemon does as designed and a board team must know of (the
// README's design notes tell each): a row per scenario, with the states
// that show it.
TEST(PowerFlow, HazardsByDesignShowOnTheBoard)
{
    const std::string monitorRequest =
        "Power Sequence: Base Power down request from power monitor.";
    struct Hazard
    {
        std::string scenario;
        std::vector<std::string> trail; // lines that must be there
        std::string basePower;          // BasePowerStatus at the end
        std::function<void(const SimRun&)> shows;
    };
    const Hazard hazards[] = {
        // Re-sequenced without the enable wait or the plug test: base power
        // comes back after the unplug at 119.5 s.
        {"resequence-unplugged",
         {"PowerMonitor Module fail.", "UBB Unplugged from HGX host"},
         "Off",
         [&](const SimRun& sim) {
             EXPECT_THAT(sim.texts("PowerDownRequest"),
                         Contains(monitorRequest));
             EXPECT_EQ(sim.trailCount(baseGood), 2);
             EXPECT_GT(sim.at(poweredOn, "UBB base has powered on", 1), 119.5);
         }},
        // The failed stage leaves the hotswap controllers on under "Off".
        {"teardown-fail",
         {"Host Powergood is disabled"},
         "Off",
         [](const SimRun& sim) {
             EXPECT_THAT(sim.texts(unexpected),
                         Contains("Power Sequence: [Base power-off] Fail to "
                                  "disable Hotswap controller."));
             EXPECT_THAT(sim.console,
                         HasSubstr("chassis power state: "
                                   "xyz.openbmc_project.State.Chassis."
                                   "PowerState.Off"));
             EXPECT_TRUE(sim.texts(poweredOff).empty());
             EXPECT_LT(sim.firstChange("hs_en", "0"), 0);
         }},
        // The warm path keeps base power on while the enable stays low.
        {"smc-reset-teardown",
         {"Delay 3 seconds to wait the other polling thread ready to stop",
          "Skip Stby_Pwr_on_Sqnc,because power good is assert."},
         "Off",
         [](const SimRun& sim) {
             EXPECT_NEAR(sim.firstChange("GPU_BASE_PWR_EN", "0"), 80.0, 0.01);
             EXPECT_LT(sim.firstChange("hs_en", "0"), 0);
             EXPECT_LT(sim.firstChange("GPU_BASE_PWR_GD", "0"), 0);
             EXPECT_TRUE(sim.texts(poweredOff).empty());
         }},
        // Bit 0 of the module mask gates the check: OAM_3's loss goes
        // unreported and base power stays.
        {"slot0-empty",
         {"Module Power good Received"},
         "On",
         [](const SimRun& sim) {
             EXPECT_TRUE(sim.texts("PowerDownRequest").empty());
             EXPECT_THAT(sim.texts("ResourceEvent.1.2.1."
                                   "ResourceStatusChangedCriticalOEM"),
                         Not(Contains(HasSubstr("OAM 3 cannot recieve"))));
         }},
        // The disable at 72 s is seen once both reads work again, at 98 s.
        {"enable-unread",
         {"Fail to read Slave address 0x25 Addr 0x04",
          "UBB Unplugged from HGX host"},
         "Off",
         [](const SimRun& sim) {
             EXPECT_THAT(sim.texts(unexpected),
                         Contains("Power Sequence: [Base power-off] Fail to "
                                  "get the value from GPIO - "
                                  "GPU_BASE_PWR_EN."));
             EXPECT_GE(sim.at("PowerDownRequest", "", 0), 98.0);
         }},
        // A lost FPGA rail is reported and power stays, with a diagnostic
        // event for every read of the 2-second power good wait.
        {"fpga-rail-lost",
         {"PWRMON_PwrGd_Chk VCCAUX_FPGA power good fail"},
         "On",
         [](const SimRun& sim) {
             EXPECT_FALSE(sim.texts("UBBPowerStatusCritical", "").empty());
             EXPECT_TRUE(sim.texts(poweredOff).empty());
             auto all = sim.texts("ResourceEvent.1.2.1."
                                  "ResourceStatusChangedCriticalOEM");
             auto reads = std::count_if(
                 all.begin(), all.end(), [](const std::string& text) {
                     return text.starts_with("UBB VR power good status");
                 });
             EXPECT_GE(reads, 100 * sim.trailCount("PWRMON_PwrGd_Chk "
                                                   "VCCAUX_FPGA power good "
                                                   "fail"));
         }},
        // The monitor stands aside for 60 s after the enable at 40 s, so the
        // loss at 75 s is noticed past 100 s. The module comes back at
        // 130 s and a re-sequence brings base power back.
        {"module-good-lost",
         {"PowerMonitor Module fail."},
         "On",
         [&](const SimRun& sim) {
             EXPECT_GE(sim.at("PowerDownRequest", monitorRequest, 0), 100.0);
             EXPECT_TRUE(std::filesystem::exists(
                 sim.outDir / "root/run/initramfs/log_nv/vr_fault_decode.out"));
             EXPECT_THAT(sim.texts(poweredOff), Contains("Base powered off."));
             EXPECT_EQ(sim.trailCount(baseGood), 2);
         }},
    };
    for (const Hazard& hazard : hazards)
    {
        SCOPED_TRACE(hazard.scenario);
        SimRun sim = run(hazard.scenario);
        for (const std::string& line : hazard.trail)
        {
            EXPECT_GT(sim.trailCount(line), 0) << line;
        }
        EXPECT_EQ(sim.powerStatus("BasePowerStatus"), hazard.basePower);
        hazard.shows(sim);
    }
}

// An empty slot has no RM either: base power-on finds none to write, and
// the eFuse check after the first power-off can't read it, which ends the
// supervising loop.
TEST(PowerFlow, OamCountAndProductsChooseTheTopology)
{
    const std::string efuseAbort = "An eFuse status fault is detected, "
                                   "aborting the power sequence retry loop.";
    SimRun seven = run("seven-oams");
    EXPECT_THAT(seven.trail, HasSubstr("Driving Link Config 1G"));
    EXPECT_THAT(seven.texts("Base.1.8.1.ResourceNotFound"),
                Contains(HasSubstr("OAM7 physically missing.")));
    for (const std::string& text :
         {std::string("Fail to enable/disable oam error injection"),
          std::string("Fail to disable oam error injection"),
          std::string("Fail to read RM7(channel 0) slave address 0x56 "
                      "register address 0xf24b"),
          efuseAbort})
    {
        EXPECT_THAT(seven.trail, HasSubstr(text));
    }
    // The host's second enable finds the loop ended.
    EXPECT_EQ(seven.trailCount(baseGood), 1);
    EXPECT_EQ(seven.trailCount("Base Power Enable Received"), 1);

    // A bare board has no IFWI flash to read back: IFWI fails its three
    // attempts and the boot halts once the component threads are joined,
    // before base power could be asked for.
    SimRun none = run("no-oam");
    EXPECT_EQ(none.trailCount("The IFWI contents not matching after retries."),
              1);
    EXPECT_EQ(none.orvaneProperty("SecureBoot_Status", "Status"),
              "ManualRecovery");
    EXPECT_EQ(none.trailCount("=== end of Secure Boot ==="), 0);
    EXPECT_EQ(none.trailCount("Base Power Enable Received"), 0);
    EXPECT_LT(none.firstChange("hs_en", "1"), 0);

    // An unknown UBB differs from every OAM but the first, so the product
    // check stops the boot before the expanders are ever asked for a
    // topology.
    SimRun unknown = run("ubb-unknown");
    EXPECT_EQ(unknown.trailCount("Different product with UBB."), 7);
    EXPECT_THAT(unknown.trail, HasSubstr("Standby power sequence 2 error"));
    EXPECT_EQ(unknown.texts("BootFailure").size(), 1U);
    EXPECT_LT(unknown.firstChange("GPU_BASE_FPGA_READY", "1"), 0);
}

// A bad vr_config.json costs the VRs it can't describe, nothing more.
TEST(PowerFlow, MalformedVrConfigSkipsOnlyItsFaultClear)
{
    // The UBB's configuration, where the VR update at start points it.
    const std::string config =
        "/var/lib/images/A/vr-bundle/UBBVRx3/vr_config.json";
    const json entries = {
        {"VRConfigs",
         {{{"SlaveAddress", "zz"}, {"Model", "A"}, {"Name", "VDD"}},
          {{"SlaveAddress", "1FFFFFFFFFFFFFFFFF"},
           {"Model", "A"},
           {"Name", "Q"}},
          {{"SlaveAddress", "40"}, {"Model", 7}, {"Name", "VCC"}},
          {{"SlaveAddress", "41"}, {"Model", "B"}, {"Name", "VCC"}}}}};
    struct Case
    {
        std::string contents;
        std::vector<std::string> lines;
    };
    const Case cases[] = {
        {entries.dump(),
         {"] " + config +
              ": VR entry with SlaveAddress \"zz\" can't be "
              "read; that VR is skipped\n",
          "] " + config +
              ": VR entry with SlaveAddress "
              "\"1FFFFFFFFFFFFFFFFF\" can't be read",
          "] " + config + ": VR entry with Model 7 can't be read",
          "] Cleared faults at slave addr 0x41\n"}},
        {"{\"VRConfigs\": [",
         {"] " + config + " is not valid JSON: no VR of it is used\n",
          "] Failed to get VR address list for UBB\n"}},
    };
    for (const Case& c : cases)
    {
        SimRun sim = run(writeScenario(
            "vr-config", {{"host", {{{"at", 40}, {"action", "enable"}}}},
                          {"files", {{config, c.contents}}},
                          {"end", 70}}));
        for (const std::string& line : c.lines)
        {
            EXPECT_THAT(sim.trail, HasSubstr(line));
        }
        EXPECT_EQ(sim.trailCount(baseGood), 1) << c.contents;
    }
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
    EXPECT_THAT(
        unplug.texts("PowerDownRequest"),
        Contains(HasSubstr("Base Power down request from rack manager.")));
    // Plugged in again with the enable still high: base power comes back.
    EXPECT_EQ(unplug.trailCount(baseGood), 2);
}

TEST(SecureBoot, DeadErotLinkHaltsForRecoveryWhileTheBusServes)
{
    SimRun sim = run("erot-dead-link");
    EXPECT_EQ(sim.texts("BootFailure").size(), 1U);
    EXPECT_EQ(sim.trailCount("*** Leave Boot Critical Section. ***"), 1);
    EXPECT_EQ(sim.trailCount("Retry eRot API (4/4)"), 2);
    // busctl read the halted daemon's objects at the end of the run.
    EXPECT_EQ(sim.orvaneProperty("SecureBoot_Status", "Status"),
              "ManualRecovery");
    EXPECT_EQ(sim.powerStatus("BasePowerStatus"), "Off");
    EXPECT_LT(sim.firstChange("GPU_BASE_FPGA_READY", "1"), 0);
    EXPECT_LT(sim.firstChange("UBB_FPGA_PROG_B", "0"), 0);
}

// Two runs on one saved eRoT: the second's new trace log entries are
// stamped after the first's, so a daemon that remembers the last entry it
// saw still reports them; a state file that can't be written fails the run.
TEST(ErotState, NextRunStampsLaterAndAFailedSaveFailsTheRun)
{
    auto scenario =
        writeScenario("erot-state", {{"name", "erot-state"}, {"end", 5}});
    auto runWith = [&](const fs::path& state) {
        return runSim(scenario,
                      {"--speed", "20", "--erot-state", state.string()});
    };
    fs::path state = scratch.path / "saved-erot.json";
    SimRun first = runWith(state);
    SimRun second = runWith(state);
    ASSERT_EQ(second.status, 0) << second.console;
    auto traceLog = [](const SimRun& run) {
        return json::parse(slurp(run.outDir / "erot-state.json"))["traceLog"];
    };
    json before = traceLog(first);
    json after = traceLog(second);
    ASSERT_GT(after.size(), before.size());
    for (size_t i = before.size(); i < after.size(); ++i)
    {
        EXPECT_GT(after[i]["t"], before.back()["t"]) << after[i].dump();
    }
    SimRun unsaved = runWith(scratch.path / "no-such-directory/state.json");
    EXPECT_EQ(unsaved.status, 1);
    EXPECT_THAT(unsaved.console, HasSubstr("eRoT state NOT saved: "));
}

// A busy enable line gives up after its 10,000 tries in a fraction of a
// second of board time: each read in a busy window is reported, while
// waiting for the enable and in every turn of the hold. At the scenario's
// own speed; the daemon's own computing counts at the speed too, so a
// daemon that a sanitizer or an emulator slows many times runs slower.
TEST(PowerFlow, BusyEnableLineFailsEachRead)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    const bool slowDaemon = true;
#else
    const bool slowDaemon = std::getenv("UBBSIM_EXEC_WRAPPER") != nullptr;
#endif
    SimRun sim = runSim("gpio-busy",
                        slowDaemon ? std::vector<std::string>{"--speed", "2"}
                                   : std::vector<std::string>{});
    ASSERT_EQ(sim.status, 0) << sim.console;
    ASSERT_FALSE(sim.journal.empty());
    EXPECT_EQ(sim.journal[0].value("message", ""),
              "Error setting gpio as Input GPU_BASE_PWR_EN");
    EXPECT_EQ(sim.journal[0].value("line", 0), 811);
    EXPECT_EQ(sim.journal[0].value("priority", 0), 3);
    auto reports = [&](const std::string& text) {
        auto all = sim.texts(unexpected);
        return std::count(all.begin(), all.end(), text);
    };
    // Eight seconds of busy line, a read every two seconds and a bit.
    EXPECT_GE(reports("Power Sequence: [Base power-on] Fail to get the value "
                      "of GPIO - GPIO_BASE_PWR_EN."),
              2);
    EXPECT_GE(reports("Power Sequence: [Base power-off] Fail to get the "
                      "value from GPIO - GPU_BASE_PWR_EN."),
              2);
    EXPECT_EQ(sim.trailCount(baseGood), 1);
    EXPECT_EQ(sim.powerStatus("BasePowerStatus"), "On");
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

TEST(VirtualShell, BoardPathsMoveUnderTheRootAndToolsStayTheMachines)
{
    // Paths that only contain a board prefix further in stay the machine's;
    // busctl and the board's tools are run by the scenarios above.
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"/usr/share/images/rm_recovery.sh 2>&1 | tee "
         "/run/initramfs/log_nv/rm_recovery.log",
         "/sim/usr/share/images/rm_recovery.sh 2>&1 | tee "
         "/sim/run/initramfs/log_nv/rm_recovery.log"},
        {"echo 1e631000.spi >/sys/bus/platform/drivers/aspeed-smc/unbind",
         "echo 1e631000.spi >/sim/sys/bus/platform/drivers/aspeed-smc/unbind"},
        {"dd if=/dev/mtd0 of=/tmp/A/smc.bin bs=512",
         "dd if=/sim/dev/mtd0 of=/sim/tmp/A/smc.bin bs=512"},
        {"/bin/echo /opt/run/x", "/bin/echo /opt/run/x"},
    };
    VirtualShell shell("/sim");
    for (const auto& [command, rewritten] : cases)
    {
        EXPECT_EQ(shell.rewrite(command),
                  "PATH='/sim/usr/sbin:/sim/usr/bin:'\"$PATH\"; " + rewritten);
    }
}

} // namespace
} // namespace ubbsim::test
