#include "base_test_support.hpp"

#include "orvane/base_power.hpp"
#include "orvane/oam_presence.hpp"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using Host = ubbsim::HostAction::Kind;

constexpr int fpga = 3;
constexpr uint8_t fpgaAddress = 0x56;
constexpr int smc = 4;
constexpr uint8_t smcAddress = 0x25;
constexpr const char* dumpCommand = "/usr/bin/VR_fault_dump-v0.9.1.sh 2>&1";
constexpr const char* dumpFile = "/run/initramfs/log_nv/vr_fault_decode.out";

std::string dumped(BaseBoard& b)
{
    std::ifstream in(b.fx.fake.files.resolve(dumpFile));
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void prepareDump(BaseBoard& b, const std::string& output)
{
    b.fx.fake.shell.output = output;
    std::filesystem::create_directories(
        b.fx.fake.files.resolve(dumpFile).parent_path());
}

// What a complete base teardown leaves on the board.
void expectBaseDown(BaseBoard& b)
{
    EXPECT_EQ(b.read(fpga, fpgaAddress, 0x60), 0x00);
    EXPECT_EQ(b.read(fpga, fpgaAddress, 0x61), 0x00);
    EXPECT_EQ(b.read(smc, smcAddress, 0x09) & 0x01, 0x00);
    EXPECT_EQ(b.read(fpga, fpgaAddress, 0x91), 0x00);
    EXPECT_EQ(b.read(fpga, fpgaAddress, 0x98), 0x00);
    EXPECT_EQ(b.read(fpga, fpgaAddress, 0x99) & 0x01, 0x00);
    EXPECT_EQ(b.line("GPU_BASE_PWR_GD"), 0);
    EXPECT_FALSE(b.state.basePowerStatus);
    EXPECT_THAT(
        b.events("Base powered off.", "ResourceEvent.1.2.1.ResourcePoweredOff"),
        SizeIs(1));
}

// The host takes its enable away, or the rack pulls the HGX plug: a rack
// manager request that takes every stage down.
TEST(BasePowerOffHold, HostRequestTakesDownEveryStage)
{
    for (Host exit : {Host::disable, Host::unplug})
    {
        ubbsim::Scenario scenario = warmBoard(true);
        hostAt(scenario, 5, exit);
        BaseBoard b(scenario);
        b.runningState();
        const auto marker =
            b.fx.fake.files.resolve("/var/lib/orvane/force_bundleupdate");
        std::filesystem::create_directories(marker.parent_path());
        std::ofstream(marker) << "";
        Console console;

        EXPECT_EQ(Base_Pwr_off_Sqnc(b.state), 1U);

        EXPECT_GE(b.fx.seconds(), 5.0 + 3.0);
        EXPECT_TRUE(b.state.baseTransition);
        EXPECT_FALSE(std::filesystem::exists(marker));
        expectBaseDown(b);
        EXPECT_THAT(b.events("Base Power down request from rack manager.",
                             "PowerDownRequest"),
                    SizeIs(1));
        EXPECT_THAT(b.published("BasePowerStatus"), ElementsAre("Off", "Off"));
        EXPECT_THAT(b.published("ServerResetStatus"), ElementsAre("True"));
        EXPECT_THAT(b.fx.fake.shell.commands(), IsEmpty()); // no VR dump
        EXPECT_THAT(console.text(), HasSubstr("UBB Unplugged from HGX host\n"));
    }
}

TEST(BasePowerOffHold, NextPowerOnWaitsForTheEnableAgain)
{
    ubbsim::Scenario scenario = warmBoard(true);
    hostAt(scenario, 2, Host::disable);
    hostAt(scenario, 30, Host::enable);
    BaseBoard b(scenario);
    b.runningState();
    UbbProduct ubb(productKV35);
    Console console;

    ASSERT_EQ(Base_Pwr_off_Sqnc(b.state), 1U);
    ASSERT_LT(b.fx.seconds(), 30.0);
    EXPECT_NE(Base_Pwr_on_Sqnc(b.state), 0U);

    EXPECT_GE(b.fx.seconds(), 30.0 + 9.0);
    EXPECT_THAT(b.published("BasePowerStatus"),
                ElementsAre("Off", "Off", "On"));
}

TEST(BasePowerOffHold, ServerResetIsFollowedWhileRunning)
{
    ubbsim::Scenario scenario = warmBoard(true);
    hostAt(scenario, 2, Host::serverReset);
    hostAt(scenario, 4, Host::serverResetRelease);
    hostAt(scenario, 6, Host::serverReset);
    hostAt(scenario, 8, Host::disable);
    BaseBoard b(scenario);
    b.runningState();
    Console console;

    EXPECT_EQ(Base_Pwr_off_Sqnc(b.state), 1U);

    // The last one is the power-down's own.
    EXPECT_THAT(b.published("ServerResetStatus"),
                ElementsAre("True", "False", "True", "True"));
}

TEST(BasePowerOffHold, MonitorRequestForModuleFaultDumpsTheRegulators)
{
    BaseBoard b(warmBoard(true));
    b.runningState();
    prepareDump(b, "page 0 status 0x0000\nvout fault\n");
    Console console;

    // The monitor's side: a module fault while the hold runs.
    std::thread monitor([&b] {
        const auto giveUp =
            std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (b.events("System ready for power-down").empty() &&
               std::chrono::steady_clock::now() < giveUp)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        b.state.sequenceEvent = sequence_event::module;
        b.state.baseDownRequest = true;
    });
    const uint32_t result = Base_Pwr_off_Sqnc(b.state);
    monitor.join();

    EXPECT_EQ(result, 1U);
    EXPECT_FALSE(b.state.baseTransition);
    expectBaseDown(b);
    EXPECT_THAT(b.events("Base Power down request from power monitor.",
                         "PowerDownRequest"),
                SizeIs(1));
    EXPECT_THAT(b.fx.fake.shell.commands(), ElementsAre(dumpCommand));
    EXPECT_EQ(dumped(b), "page 0 status 0x0000\nvout fault\n");
}

// A failed attempt at 18 enters at the dump, which the log shows in the
// pieces of a 128-byte line buffer.
TEST(BasePowerOffStages, ModuleFaultCopiesTheDumpInLinePieces)
{
    BaseBoard b(warmBoard(true));
    b.runningState();
    b.state.sequenceEvent = sequence_event::module;
    const std::string longLine(300, 'A');
    prepareDump(b, longLine + "\nlast words");
    Console console;

    EXPECT_EQ(Base_Pwr_off_Sqnc(b.state), 1U);

    expectBaseDown(b);
    EXPECT_EQ(dumped(b), longLine + "\nlast words");
    std::string text = console.text();
    EXPECT_THAT(text, HasSubstr("] " + std::string(127, 'A') + "\n"));
    EXPECT_THAT(text, Not(HasSubstr(std::string(128, 'A'))));
    EXPECT_THAT(text, HasSubstr("] " + std::string(46, 'A') + "\n\n"));
    EXPECT_THAT(text, HasSubstr("] last words\n"));
}

// A failed attempt takes down only what it reached.
TEST(BasePowerOffStages, EventSixteenTouchesOnlyPowerGoodAndRegister99)
{
    BaseBoard b(warmBoard(true));
    b.runningState();
    b.state.sequenceEvent = sequence_event::beforeHotswap;
    Console console;

    EXPECT_EQ(Base_Pwr_off_Sqnc(b.state), 1U);

    EXPECT_EQ(b.read(fpga, fpgaAddress, 0x60), 0xFF);
    EXPECT_EQ(b.read(smc, smcAddress, 0x09) & 0x01, 0x01);
    EXPECT_EQ(b.read(fpga, fpgaAddress, 0x91), 0x10);
    EXPECT_EQ(b.read(fpga, fpgaAddress, 0x99) & 0x01, 0x00);
    EXPECT_EQ(b.line("GPU_BASE_PWR_GD"), 0);
    EXPECT_THAT(b.events("System ready for power-down"), IsEmpty());
}

TEST(BasePowerOffStages, HotswapFailureFailsWithSeventeenAndTearsDownFromThere)
{
    ubbsim::Scenario scenario = warmBoard(false);
    hostAt(scenario, 1, Host::enable);
    ubbsim::Fault noGood;
    noGood.kind = "hotswapNoGood";
    faultAt(scenario, noGood);
    BaseBoard b(scenario);
    b.standbyState();
    UbbProduct ubb(productKV35);
    Console console;

    ASSERT_EQ(Base_Pwr_on_Sqnc(b.state), 0U);
    EXPECT_EQ(b.state.sequenceEvent, sequence_event::hotswap);
    EXPECT_THAT(b.events("Fail to receive Hotswap controller Power good."),
                SizeIs(1));
    // The controllers answered: no I2C record for a power good that never
    // came.
    EXPECT_THAT(b.fx.fake.zellib.calls(ZellibCall::Kind::i2cLog), IsEmpty());

    EXPECT_EQ(Base_Pwr_off_Sqnc(b.state), 1U);

    expectBaseDown(b);
    std::string text = console.text();
    EXPECT_THAT(text, HasSubstr("Hotswap controller disabled"));
    EXPECT_THAT(text, Not(HasSubstr("Host Powergood is disabled")));
}

TEST(BasePowerOffStages, NoStageForFifteenOrAnUnknownEvent)
{
    for (uint32_t event : {15U, 7U})
    {
        BaseBoard b(warmBoard(true));
        b.runningState();
        b.state.sequenceEvent = event;
        Console console;

        EXPECT_EQ(Base_Pwr_off_Sqnc(b.state), 0U) << event;

        EXPECT_EQ(b.line("GPU_BASE_PWR_GD"), 1);
        EXPECT_THAT(b.events("Base powered off."), SizeIs(1));
        EXPECT_EQ(console.text().find("Non-existed event") != std::string::npos,
                  event == 7U);
    }
}

TEST(StandbyPowerOff, FromTheRetimerStageDown)
{
    BaseBoard b(warmBoard(false));
    b.standbyState();
    b.state.sequenceEvent = 8;
    Console console;

    EXPECT_EQ(Stby_Pwr_off_Sqnc(b.state), 1U);

    EXPECT_EQ(b.read(smc, smcAddress, 0x08), 0x00);        // FPGA rails
    EXPECT_EQ(b.read(smc, smcAddress, 0x0A) & 0xF8, 0x00); // retimer rails
    EXPECT_EQ(b.read(smc, smcAddress, 0x09) & 0x06, 0x06); // OAM rails stay
    EXPECT_EQ(b.read(smc, smcAddress, 0x0B), 0x30);        // k517 stay
    EXPECT_EQ(b.line("GPU_BASE_HMC_READY"), 0);
    EXPECT_EQ(b.line("GPU_BASE_FPGA_READY"), 1);
    EXPECT_THAT(b.published("StandbyPowerStatus"), ElementsAre("Off"));
    EXPECT_THAT(b.events("Standby powered off."), SizeIs(1));
}

// The k517 rail of event 10 keeps its enable under the off mask 0x7F, so its
// power good stays: that stage fails, the lower ones still run, and standby
// is not reported off.
TEST(StandbyPowerOff, FromRunningBaseTheK517StageFailsAndTheRestGoesOn)
{
    BaseBoard b(warmBoard(false));
    b.standbyState();
    b.state.sequenceEvent = sequence_event::basePowerOn;
    Console console;

    EXPECT_EQ(Stby_Pwr_off_Sqnc(b.state), 0U);

    EXPECT_EQ(b.line("GPU_BASE_FPGA_READY"), 0);
    EXPECT_EQ(b.read(smc, smcAddress, 0x09) & 0x06, 0x00);
    EXPECT_EQ(b.read(smc, smcAddress, 0x0B), 0x20);
    EXPECT_EQ(b.read(smc, smcAddress, 0x08), 0x00);
    EXPECT_EQ(b.line("GPU_BASE_HMC_READY"), 0);
    EXPECT_THAT(b.events("k517 rt new rail rail fail.", "OrvaneSvcUnexpected"),
                SizeIs(1));
    EXPECT_THAT(b.published("StandbyPowerStatus"), IsEmpty());
}

TEST(StandbyPowerOff, HotswapsOffForTheVrUpdate)
{
    BaseBoard b(warmBoard(true));
    Console console;

    EXPECT_TRUE(DisableUbbHotswaps(b.state));

    EXPECT_EQ(b.read(smc, smcAddress, 0x0A) & 0x02, 0x00);
    EXPECT_EQ(b.read(smc, smcAddress, 0x09) & 0x01, 0x00);
}

} // namespace
} // namespace orvane::test
