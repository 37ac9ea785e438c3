#include "power_board.hpp"

#include "main/boot_driver.hpp"
#include "orvane/base_attempt_checks.hpp"
#include "orvane/base_power_off.hpp"
#include "orvane/base_power_on.hpp"
#include "orvane/error_injection.hpp"
#include "orvane/io_expanders.hpp"
#include "orvane/power_monitor.hpp"
#include "orvane/product_scan.hpp"
#include "orvane/sgpio.hpp"
#include "orvane/standby_power_off.hpp"
#include "orvane/vr_fault_clear.hpp"
#include "utils/i2c_ops.hpp"

#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using namespace ::testing;
using Bytes = std::vector<uint8_t>;
using Host = ubbsim::HostAction::Kind;
using Writes = std::vector<Bytes>;

constexpr int fpga = 3;
constexpr uint8_t fpgaAddress = 0x56;
constexpr int smc = 4;
constexpr uint8_t smcAddress = 0x25;

ubbsim::Scenario enabledAt(double seconds)
{
    ubbsim::Scenario scenario = warmBoard(false);
    hostAt(scenario, seconds, Host::enable);
    return scenario;
}

std::filesystem::path marker(PowerBoard& b, const char* path)
{
    const auto file = b.fx.fake.files.resolve(path);
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << "1";
    return file;
}

TEST(BasePowerOn, ReachesEventNineteenAfterTheHostsEnable)
{
    PowerBoard b(enabledAt(5));
    b.standbyState();
    UbbProduct ubb(productKV35);
    const auto injection = marker(b, "/var/lib/redfish_error_injection_mode");

    EXPECT_NE(b.run(Base_Pwr_on_Sqnc), 0U);

    EXPECT_EQ(b.state.sequenceEvent, sequence_event::basePowerOn);
    EXPECT_FALSE(b.state.baseTransition);
    EXPECT_EQ(b.state.oamPresentMask, 0xFF);
    EXPECT_EQ(b.state.moduleGoodMask, 0xFF);
    // The enable, then about nine seconds of fixed pauses.
    EXPECT_GE(b.fx.seconds(), 5.0 + 9.0);
    EXPECT_LT(b.fx.seconds(), 5.0 + 1.0 + 9.5);
    EXPECT_FALSE(std::filesystem::exists(injection));

    EXPECT_EQ(b.read(fpga, fpgaAddress, 0x60), 0xFF); // host power good
    EXPECT_EQ(b.read(fpga, fpgaAddress, 0x62), 0x00); // PERST released
    EXPECT_EQ(b.read(fpga, fpgaAddress, 0x99) & 0x01, 0x01);
    EXPECT_EQ(b.read(fpga, fpgaAddress, 0x98), 0x10); // last retimer
    // Hotswap on, the OAM I2C switch held in reset.
    EXPECT_EQ(b.read(smc, smcAddress, 0x09) & 0x09, 0x01);
    // Eight OAMs of a known product get its link topology.
    EXPECT_EQ(b.read(14, 0x20, 0x08), 0x63);
    EXPECT_EQ(b.line("GPU_BASE_PWR_GD"), 1);

    EXPECT_THAT(b.published("BasePowerStatus"), ElementsAre("On"));
    EXPECT_THAT(b.published("OAMErrorInjection"), ElementsAre("Disable"));
    EXPECT_THAT(b.fx.fake.shell.commands(),
                ElementsAre(rescan, rescan, rescan));
    auto finished = b.fx.fake.zellib.calls(ZellibCall::Kind::bootTimeFinish);
    ASSERT_THAT(finished, SizeIs(1));
    EXPECT_TRUE(finished[0].flag);
    EXPECT_THAT(b.events("UBB base has powered on",
                         "ResourceEvent.1.2.1.ResourcePoweredOn"),
                SizeIs(1));
    EXPECT_THAT(b.events("OAM base has powered on"), SizeIs(1));
}

TEST(BasePowerOn, UnpluggedBoardWaitsSilentlyForThePlug)
{
    ubbsim::Scenario scenario = enabledAt(1);
    hostAt(scenario, 0, Host::unplug);
    hostAt(scenario, 10, Host::plug);
    PowerBoard b(scenario);
    b.standbyState();
    UbbProduct ubb(productKV35);
    EXPECT_NE(b.run(Base_Pwr_on_Sqnc), 0U);

    EXPECT_GE(b.fx.seconds(), 10.0 + 9.0);
    EXPECT_EQ(occurrences(b.out, "UBB not Plugged into HGX host\n"), 1U);
    EXPECT_EQ(occurrences(b.out, "UBB will not power on GPUs\n"), 1U);
}

TEST(BasePowerOn, ResequenceAfterAFaultSkipsTheWait)
{
    PowerBoard b(warmBoard(false)); // the host never enables
    b.standbyState();
    b.state.baseDownRequest = true;
    UbbProduct ubb(productKV35);

    EXPECT_NE(b.run(Base_Pwr_on_Sqnc), 0U);
    EXPECT_LT(b.fx.seconds(), 10.0);
    EXPECT_FALSE(b.state.baseDownRequest);
}

TEST(BasePowerOn, UnknownProductWithEightOamsFailsAtTheExpanders)
{
    PowerBoard b(enabledAt(1));
    b.standbyState();
    UbbProduct ubb(productUnknown);

    EXPECT_EQ(b.run(Base_Pwr_on_Sqnc), 0U);

    EXPECT_EQ(b.state.sequenceEvent, sequence_event::beforeHotswap);
    EXPECT_TRUE(b.state.baseTransition); // the monitor stays out
    EXPECT_THAT(b.events("Power Sequence: [Base power-on] Fail to Configure IO "
                         "Expander.",
                         "OrvaneSvcUnexpected"),
                SizeIs(1));
    EXPECT_THAT(b.published("BasePowerStatus"), IsEmpty());
    EXPECT_EQ(b.read(smc, smcAddress, 0x09) & 0x01, 0x00);
}

TEST(BasePowerOn, WarmResetWithPowerGoodOnlyLearnsTheState)
{
    PowerBoard b(warmBoard(true));
    b.state.standbyPowerStatus = true;
    EXPECT_NE(b.run(Base_Pwr_on_Sqnc), 0U);

    EXPECT_EQ(b.state.sequenceEvent, sequence_event::basePowerOn);
    EXPECT_EQ(b.state.oamPresentMask, 0xFF);
    EXPECT_EQ(b.state.moduleGoodMask, 0xFF);
    EXPECT_THAT(b.published("OAMErrorInjection"), ElementsAre("Disable"));
    EXPECT_THAT(b.published("BasePowerStatus"), ElementsAre("On"));
    EXPECT_THAT(b.events("OAM base has powered on"), SizeIs(1));
    EXPECT_THAT(b.out, Not(HasSubstr("Keep I2C switch under Reset")));
}

// Bit 0 of the RM register is 0 for "enabled". A silent RM reads as
// enabled, so disabling fails on the write that can't reach it.
TEST(ErrorInjection, EveryRmFollowsAndASilentOneFailsTheSet)
{
    for (bool silentRm : {false, true})
    {
        ubbsim::Scenario scenario = warmBoard(false);
        if (silentRm)
        {
            scenario.faults.push_back(silent(7, 0x56));
        }
        VirtualBoardFixture fx(scenario);
        OrvaneSvcState state;

        std::string out = console([&] {
            EXPECT_EQ(SetOamErrorInjection(state, true), !silentRm);
            EXPECT_EQ(state.oamErrorInjection, !silentRm);
            int event = 0;
            uint8_t value = 0xFF;
            EXPECT_TRUE(ReadOamErrorInjection(&event, 5, value)); // OAM 0
            EXPECT_EQ(value & 0x01, 0);
            EXPECT_EQ(SetOamErrorInjection(state, false), !silentRm);
        });
        EXPECT_FALSE(state.oamErrorInjection);
        EXPECT_EQ(occurrences(out, "Fail to disable oam error injection"),
                  silentRm ? 1U : 0U);
    }
}

using VrFaultClearing = VrInfoTest;

TEST_F(VrFaultClearing, HotswapsAreClearedOnTheOamsOnly)
{
    config("UBB", R"({"VRConfigs": [
        {"SlaveAddress": "0x40", "Model": "MP2975", "Name": "VDD"},
        {"SlaveAddress": "0x1E", "Model": "LM5066I", "Name": "HSC"}]})");
    config("OAM_3", R"({"VRConfigs": [
        {"SlaveAddress": "0x15", "Model": "XDP710", "Name": "HSC"},
        {"SlaveAddress": "0x44", "Model": "MP2975", "Name": "VR0"}]})");
    serve({{"UBB", ""}, {"OAM_3", ""}});
    for (auto [bus, address] :
         {std::pair{4, 0x40}, {4, 0x1E}, {2, 0x70}, {2, 0x15}, {2, 0x44}})
    {
        platform.i2c.addDevice(bus, static_cast<uint8_t>(address));
    }

    std::string out = console(
        [] { detail::ClearVrFaults(static_cast<uint8_t>(~0x08)); }); // OAM 3

    using Send = std::tuple<int, int, int>;
    auto sends = [this](I2cOp::Kind kind) {
        std::vector<Send> found;
        for (const I2cOp& op : platform.i2c.operations(kind))
        {
            found.emplace_back(op.bus, op.address, op.command);
        }
        return found;
    };
    EXPECT_THAT(sends(I2cOp::Kind::smbusWriteByteData),
                ElementsAre(Send{4, 0x40, 0x00}, Send{2, 0x44, 0x00}));
    EXPECT_THAT(sends(I2cOp::Kind::smbusWriteByte),
                ElementsAre(Send{4, 0x40, 0x03}, Send{2, 0x70, 0x08},
                            Send{2, 0x15, 0x03}, Send{2, 0x44, 0x03}));
    EXPECT_THAT(out, HasSubstr("Cleared faults at slave addr 0x15"));
}

constexpr const char* dumpFile = "/run/initramfs/log_nv/vr_fault_decode.out";

// What a complete base teardown leaves on the board, after `teardowns`.
void expectBaseDown(PowerBoard& b, size_t teardowns = 1)
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
        SizeIs(teardowns));
}

// The host takes its enable away, or the rack pulls the HGX plug: a rack
// manager request that takes every stage down.
TEST(BasePowerOffHold, HostRequestTakesDownEveryStage)
{
    for (Host exit : {Host::disable, Host::unplug})
    {
        ubbsim::Scenario scenario = warmBoard(true);
        hostAt(scenario, 5, exit);
        PowerBoard b(scenario);
        b.runningState();
        const auto update = marker(b, "/var/lib/orvane/force_bundleupdate");
        EXPECT_EQ(b.run(Base_Pwr_off_Sqnc), 1U);

        EXPECT_GE(b.fx.seconds(), 5.0 + 3.0);
        EXPECT_TRUE(b.state.baseTransition);
        EXPECT_FALSE(std::filesystem::exists(update));
        expectBaseDown(b);
        EXPECT_THAT(b.events("Base Power down request from rack manager.",
                             "PowerDownRequest"),
                    SizeIs(1));
        EXPECT_THAT(b.published("BasePowerStatus"), ElementsAre("Off", "Off"));
        EXPECT_THAT(b.published("ServerResetStatus"), ElementsAre("True"));
        EXPECT_THAT(b.fx.fake.shell.commands(), IsEmpty()); // no VR dump
        EXPECT_THAT(b.out, HasSubstr("UBB Unplugged from HGX host\n"));
    }
}

// A failed attempt at 18 enters at the dump, which the log shows in the
// pieces of a 128-byte line buffer.
TEST(BasePowerOffStages, ModuleFaultCopiesTheDumpInLinePieces)
{
    PowerBoard b(warmBoard(true));
    b.runningState();
    b.state.sequenceEvent = sequence_event::module;
    const std::string longLine(300, 'A');
    b.fx.fake.shell.output = longLine + "\nlast words";
    std::filesystem::create_directories(
        b.fx.fake.files.resolve(dumpFile).parent_path());
    EXPECT_EQ(b.run(Base_Pwr_off_Sqnc), 1U);

    expectBaseDown(b);
    EXPECT_THAT(b.fx.fake.shell.commands(),
                ElementsAre("/usr/bin/VR_fault_dump-v0.9.1.sh 2>&1"));
    std::ifstream in(b.fx.fake.files.resolve(dumpFile));
    std::ostringstream dumped;
    dumped << in.rdbuf();
    EXPECT_EQ(dumped.str(), longLine + "\nlast words");
    EXPECT_THAT(b.out, HasSubstr("] " + std::string(127, 'A') + "\n"));
    EXPECT_THAT(b.out, Not(HasSubstr(std::string(128, 'A'))));
    EXPECT_THAT(b.out, HasSubstr("] " + std::string(46, 'A') + "\n\n"));
    EXPECT_THAT(b.out, HasSubstr("] last words\n"));
}

// A failed attempt takes down only what it reached; 15 and unknown events
// take nothing down.
TEST(BasePowerOffStages, EachEventTearsDownWhatItReached)
{
    struct Case
    {
        uint32_t event;
        uint32_t result;
        uint8_t hostGood; // register 0x60 after
        uint8_t hotswap;  // the enable bit after
        uint8_t retimer;  // register 0x91 after
        int powerGood;    // GPU_BASE_PWR_GD after
    };
    const Case cases[] = {
        {16, 1, 0xFF, 0x01, 0x10, 0},
        {17, 1, 0xFF, 0x00, 0x00, 0},
        {15, 0, 0xFF, 0x01, 0x10, 1},
        {7, 0, 0xFF, 0x01, 0x10, 1},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.event);
        PowerBoard b(warmBoard(true));
        b.runningState();
        b.state.sequenceEvent = c.event;
        EXPECT_EQ(b.run(Base_Pwr_off_Sqnc), c.result);

        EXPECT_EQ(b.read(fpga, fpgaAddress, 0x60), c.hostGood);
        EXPECT_EQ(b.read(smc, smcAddress, 0x09) & 0x01, c.hotswap);
        EXPECT_EQ(b.read(fpga, fpgaAddress, 0x91), c.retimer);
        EXPECT_EQ(b.read(fpga, fpgaAddress, 0x99) & 0x01, c.powerGood);
        EXPECT_EQ(b.line("GPU_BASE_PWR_GD"), c.powerGood);
        EXPECT_THAT(b.events("System ready for power-down"), IsEmpty());
        EXPECT_THAT(b.events("Base powered off."), SizeIs(1));
        EXPECT_EQ(occurrences(b.out, "Host Powergood is disabled"), 0U);
        EXPECT_EQ(occurrences(b.out, "Non-existed event"),
                  c.event == 7 ? 1 : 0);
    }
}

// A hotswap that never comes good fails power-on at 17; the controllers
// answered, so there is no I2C record.
// Every attempt fails at the hotswap controllers: the supervising loop
// tears each one down from event 17 and gives up after three re-sequences.
TEST(SupervisingLoop, FourHotswapFailuresSpendTheBudget)
{
    ubbsim::Scenario scenario = withFault("hotswapNoGood", warmBoard(false));
    hostAt(scenario, 1, Host::enable);
    PowerBoard b(scenario);
    b.standbyState();
    UbbProduct ubb(productKV35);
    BootTimes times;
    std::future<bool> copy =
        std::async(std::launch::deferred, [] { return false; });

    std::string out =
        console([&] { RunSupervisingLoop(b.state, times, {}, copy); });

    EXPECT_EQ(b.state.sequenceEvent, sequence_event::hotswap);
    EXPECT_THAT(b.events("Fail to receive Hotswap controller Power good."),
                SizeIs(4));
    EXPECT_THAT(b.fx.fake.zellib.calls(ZellibCall::Kind::i2cLog), IsEmpty());
    std::vector<std::string> retries;
    for (const ZellibCall& call : b.events("equence ", "OrvaneSvcUnexpected"))
    {
        retries.push_back(call.message.substr(call.message.find("] ") + 2));
    }
    EXPECT_THAT(retries, ElementsAre("Power Sequence: Re-sequence 1...",
                                     "Power Sequence: Re-sequence 2...",
                                     "Power Sequence: Re-sequence 3...",
                                     "Power Sequence: Execute Base Power-off "
                                     "Sequence after a third."));
    // The hotswap critical comes once, in the turn with one failure.
    EXPECT_THAT(b.events("Hotswap power good status from I/O expanders"),
                SizeIs(1));
    EXPECT_THAT(b.events("Hotswap power good value: 0x",
                         "ResourceEvent.1.2.1.ResourceRetryFailOEM"),
                SizeIs(1));
    EXPECT_EQ(occurrences(out, "parallelTask Copy Occur failed"), 1U);
    EXPECT_THAT(out, HasSubstr("Base power off due to error"));
    EXPECT_THAT(out, EndsWith("Power Sequence Stop\n"));
    expectBaseDown(b, 4);
}

// CTF is the power monitor's once base power is on; failed reads become
// I2C events, critical in the last turn.
TEST(BaseAttemptChecks, CtfBeforeBasePowerAndFailedReads)
{
    FakePlatform fake;
    fake.i2c.setRegister(fpga, fpgaAddress, 0xC0, 0x7E); // OAM_0 and OAM_7
    fake.i2c.setRegister(fpga, fpgaAddress, 0x61, 0xFF);
    console([] {
        CheckAfterBaseAttempt(2, sequence_event::module);
        CheckAfterBaseAttempt(0, sequence_event::basePowerOn);
    });
    std::vector<std::string> ctf;
    for (const auto& call :
         eventsWithId(fake.zellib,
                      "ResourceEvent.1.2.1.TemperatureAssertCriticalFaultOEM"))
    {
        ctf.push_back(call.arg1);
    }
    EXPECT_THAT(ctf, ElementsAre("OAM_0", "OAM_7"));

    fake.i2c.removeDevice(fpga, fpgaAddress);
    std::string out = console([] {
        CheckAfterBaseAttempt(4, sequence_event::basePowerOn);
        CheckAfterBaseAttempt(2, sequence_event::hotswap);
    });
    EXPECT_THAT(out, HasSubstr("Fail to read CTF Register 0xC0"));
    auto records = fake.zellib.calls(ZellibCall::Kind::i2cLog);
    ASSERT_EQ(records.size(), 4U);
    EXPECT_EQ(records[0].message,
              "Power Sequence: Fail to read CTF Register 0xC0. Retry 4");
    EXPECT_EQ(records[0].level, 2);
    EXPECT_TRUE(records[0].flag);
    EXPECT_EQ(records[1].message, "Power Sequence: Fail to read Module Power "
                                  "Good Register 0x61. Retry 4");
    EXPECT_EQ(records[2].level, 4);
    EXPECT_FALSE(records[2].flag);
    EXPECT_EQ(records[3].i2c->reg, 0x61);
}

// From the retimer stage, or from running base power. The k517 rail of
// event 10 keeps its enable under the off mask 0x7F, so its power good
// stays: that stage fails, the lower ones still run, and standby is not
// reported off.
TEST(StandbyPowerOff, EachStageFromTheEventDown)
{
    struct Case
    {
        uint32_t event;
        uint32_t result;
        uint8_t oamRails; // register 0x09 & 0x06 after
        uint8_t k517;     // register 0x0B after
        int fpgaReady;
        size_t reports;
    };
    for (const Case& c : {Case{8, 1, 0x06, 0x30, 1, 1},
                          Case{sequence_event::basePowerOn, 0, 0, 0x20, 0, 0}})
    {
        SCOPED_TRACE(c.event);
        PowerBoard b(warmBoard(false));
        b.standbyState();
        b.state.sequenceEvent = c.event;

        EXPECT_EQ(b.run(Stby_Pwr_off_Sqnc), c.result);

        EXPECT_EQ(b.read(smc, smcAddress, 0x08), 0x00);        // FPGA rails
        EXPECT_EQ(b.read(smc, smcAddress, 0x0A) & 0xF8, 0x00); // retimer rails
        EXPECT_EQ(b.read(smc, smcAddress, 0x09) & 0x06, c.oamRails);
        EXPECT_EQ(b.read(smc, smcAddress, 0x0B), c.k517);
        EXPECT_EQ(b.line("GPU_BASE_HMC_READY"), 0);
        EXPECT_EQ(b.line("GPU_BASE_FPGA_READY"), c.fpgaReady);
        EXPECT_EQ(b.published("StandbyPowerStatus"),
                  std::vector<std::string>(c.reports, "Off"));
        EXPECT_THAT(b.events("Standby powered off."), SizeIs(c.reports));
        EXPECT_THAT(
            b.events("k517 rt new rail rail fail.", "OrvaneSvcUnexpected"),
            SizeIs(1 - c.reports));
    }

    // The hotswaps alone go off for a VR update.
    PowerBoard running(warmBoard(true));
    console([&] { EXPECT_TRUE(DisableUbbHotswaps(running.state)); });
    EXPECT_EQ(running.read(smc, smcAddress, 0x0A) & 0x02, 0x00);
    EXPECT_EQ(running.read(smc, smcAddress, 0x09) & 0x01, 0x00);
}

constexpr int expanderBus = 14;
constexpr uint8_t linkConfig = 0x20;
constexpr uint8_t moduleId = 0x27;

// Open drain, then every bank an output: five at 0x20, four at 0x27.
Writes setUp(uint8_t address)
{
    Writes expected{
        {0x28, static_cast<uint8_t>(address == moduleId ? 0x80 : 0x00)}};
    const uint8_t banks = address == moduleId ? 4 : 5;
    for (uint8_t reg = 0x18; reg < 0x18 + banks; ++reg)
    {
        expected.push_back({reg, 0x00});
    }
    return expected;
}

Writes withOutputs(Writes writes, const Bytes& pattern, size_t width = 1)
{
    for (size_t i = 0; i < pattern.size(); ++i)
    {
        Bytes write{static_cast<uint8_t>(0x08 + i), pattern[i]};
        write.resize(1 + width, 0x00);
        writes.push_back(write);
    }
    return writes;
}

// The expanders on a fake bus, with the writes that each one took.
class IoExpanders : public testing::Test
{
  protected:
    IoExpanders()
    {
        fake.i2c.addDevice(expanderBus, linkConfig);
        fake.i2c.addDevice(expanderBus, moduleId);
    }

    Writes taken(uint8_t address) const
    {
        Writes writes;
        for (const I2cOp& op : fake.i2c.operations(I2cOp::Kind::write))
        {
            if (op.address == address && op.result > 0)
            {
                writes.push_back(op.bytes);
            }
        }
        return writes;
    }

    // Configures with this product and OAM mask; the console text.
    std::string configure(int product, uint8_t present, uint32_t expected)
    {
        fake.i2c.clearOperations();
        UbbProduct ubb(product);
        return console(
            [&] { EXPECT_EQ(ConfigureIoExpanders(state, present), expected); });
    }

    FakePlatform fake;
    OrvaneSvcState state;
};

// Eight OAMs get the product's topology, never 0x1C or 0x0C at the module
// ID expander; an unknown product drives no output. Fewer than eight drive
// zeros whatever the product, a link config write then two bytes, the
// second the low byte of the transfer's clean event code.
TEST_F(IoExpanders, OutputsFollowTheProductAndTheOams)
{
    const Bytes kv35{0x63, 0x18, 0xC6, 0x31, 0x8C};
    const Bytes kv10{0x52, 0x94, 0xA5, 0x29, 0x4A};
    for (int product : {productKV30, productKV35, productKV38, productKV20})
    {
        configure(product, 0xFF, 1);
        EXPECT_EQ(taken(linkConfig),
                  withOutputs(setUp(linkConfig),
                              product == productKV20 ? kv10 : kv35));
        EXPECT_EQ(taken(moduleId),
                  withOutputs(setUp(moduleId), {0x08, 0x4C, 0x2A, 0x6E}));
    }

    EXPECT_THAT(configure(productUnknown, 0xFF, 0),
                HasSubstr("Unable to determine product"));
    EXPECT_EQ(taken(linkConfig), setUp(linkConfig));
    EXPECT_EQ(taken(moduleId), setUp(moduleId));

    configure(productUnknown, 0x7F, 1);
    EXPECT_EQ(taken(linkConfig),
              withOutputs(setUp(linkConfig), Bytes(5, 0x00), 2));
    EXPECT_EQ(taken(moduleId), withOutputs(setUp(moduleId), Bytes(4, 0x00)));
}

TEST_F(IoExpanders, FailedWriteClearsTheResultButTheWalkGoesOn)
{
    // All three tries of the very first write.
    fake.i2c.inject({I2cOp::Kind::write, expanderBus, linkConfig, EIO, 3});
    std::string out = configure(productKV35, 0xFF, 0);

    EXPECT_EQ(taken(linkConfig).size(), 5U + 5U);
    EXPECT_EQ(taken(moduleId).size(), 5U + 4U);
    EXPECT_THAT(out, HasSubstr("Fail to set all banks 0x20 register "
                               "0x28 to open drain."));
    auto records = fake.zellib.calls(ZellibCall::Kind::i2cLog);
    ASSERT_EQ(records.size(), 3U);
    EXPECT_THAT(records.back().message,
                HasSubstr("IO_Expander set all banks 0x20 register 0x28 to "
                          "open drain failure. Retry 3"));
}

constexpr const char* criticalOem =
    "ResourceEvent.1.2.1.ResourceStatusChangedCriticalOEM";
constexpr MonitorEntry moduleEntry{18, 0xFF, 0x61, 0x56, 3};

ubbsim::Scenario runningWith(std::vector<ubbsim::Fault> faults)
{
    ubbsim::Scenario scenario = warmBoard(true);
    scenario.faults = std::move(faults);
    return scenario;
}

ubbsim::Fault sgpio(const std::string& fpga, int bits)
{
    ubbsim::Fault fault = faultOf("sgpio");
    fault.fpga = fpga;
    fault.value = bits;
    return fault;
}

// One monitor round on a running board; its console text in b.out.
void round(PowerBoard& b)
{
    b.runningState();
    b.out = console([&] { detail::PowerMonitorRound(b.state); });
}

size_t criticalReports(const PowerBoard& b)
{
    return eventsWithId(b.fx.fake.zellib, "UBBPowerStatusCritical").size() +
           eventsWithId(b.fx.fake.zellib, "OAMPowerStatusCritical").size();
}

TEST(PowerMonitorRound, LostK517RailIsOnlyNoted)
{
    ubbsim::Fault drop = faultOf("railDrop");
    drop.rail = "1V8_RT47_K517";
    PowerBoard b(runningWith({drop}));
    round(b);

    EXPECT_THAT(b.out, HasSubstr("PowerMonitor k517 rt rail failed."));
    EXPECT_EQ(criticalReports(b), 0U);
    EXPECT_FALSE(b.state.baseDownRequest);
    // The retimer, OAM and module lists and the SGPIO wait for next round.
    EXPECT_LT(b.fx.seconds(), 10.0);
    EXPECT_THAT(b.published("UBBFPGAStatus"), IsEmpty());
}

TEST(PowerMonitorRound, LostModuleEndsBasePowerUnlessOamZeroWasDown)
{
    ubbsim::Fault lost = faultOf("moduleGoodLost");
    lost.oam = 4;
    PowerBoard b(runningWith({lost}));
    round(b);

    EXPECT_EQ(b.state.sequenceEvent, sequence_event::module);
    EXPECT_TRUE(b.state.baseDownRequest);
    auto lostOams = b.events("cannot recieve the power good signal");
    ASSERT_THAT(lostOams, SizeIs(1));
    EXPECT_EQ(lostOams[0].arg1, "OAM_4 module power good,Critical");
    EXPECT_EQ(lostOams[0].messageId, criticalOem);
    EXPECT_EQ(lostOams[0].level, 2);
    auto reports = eventsWithId(b.fx.fake.zellib, "OAMPowerStatusCritical");
    ASSERT_THAT(reports, SizeIs(1));
    EXPECT_EQ(reports[0].arg1, "Module");
    EXPECT_THAT(b.out, HasSubstr("PowerMonitor Module fail."));

    // Only a board whose power-on saw OAM_0 good (moduleGoodMask bit 0) is
    // judged.
    b.fx.fake.zellib.clear();
    b.state.moduleGoodMask = 0xFE;
    const MonitorEntry list[] = {moduleEntry};
    EXPECT_TRUE(PWRMON_PwrGd_Chk(b.state, list));
    EXPECT_THAT(b.events("cannot recieve"), IsEmpty());
}

TEST(PowerMonitorChecks, RunningSequenceMakesTheMonitorStepAside)
{
    PowerBoard b(warmBoard(true));
    b.runningState();
    b.state.baseTransition = true;
    b.state.baseDownRequest = true;
    b.state.sequenceEvent = 17;
    const MonitorEntry list[] = {moduleEntry};

    EXPECT_FALSE(PWRMON_PwrGd_Chk(b.state, list));
    PWRMON_errorHandle(b.state);

    EXPECT_EQ(b.fx.seconds(), 0.0);
    EXPECT_EQ(b.state.sequenceEvent, 17U);
    EXPECT_TRUE(b.state.baseDownRequest);
    EXPECT_EQ(criticalReports(b), 0U);
}

// Which faults report and which end base power.
TEST(PowerMonitorErrorHandle, EachEventHasItsConsequence)
{
    struct Case
    {
        uint32_t event;
        const char* report; // message id of the critical entry, if any
        bool downRequest;   // baseDownRequest after, from true
        bool logged;        // a "PowerMonitor " line
    };
    const Case cases[] = {
        {1, "UBBPowerStatusCritical", true, false},
        {5, "UBBPowerStatusCritical", true, false},
        {6, nullptr, true, true},
        {11, nullptr, true, true},
        {12, "OAMPowerStatusCritical", true, true},
        {13, "OAMPowerStatusCritical", true, true},
        {14, nullptr, false, false},
        {16, nullptr, false, false},
        {17, "OAMPowerStatusCritical", true, true},
        {18, "OAMPowerStatusCritical", true, true},
        {19, nullptr, false, false},
        {0, nullptr, false, false},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.event);
        FakePlatform fake;
        OrvaneSvcState state;
        state.sequenceEvent = c.event;
        state.baseDownRequest = true;

        std::string out = console([&] { PWRMON_errorHandle(state); });

        EXPECT_EQ(state.baseDownRequest, c.downRequest);
        auto entries = fake.zellib.calls(ZellibCall::Kind::nvLog);
        ASSERT_THAT(entries, SizeIs(c.report == nullptr ? 0 : 1));
        EXPECT_TRUE(entries.empty() || entries[0].messageId == c.report);
        EXPECT_EQ(occurrences(out, "PowerMonitor ") > 0, c.logged);
    }
}

// Each round watches seventeen signals, a second's pause after each, and
// publishes the FPGAs' statuses; the SMC FPGA's is read in the light of the
// UBB FPGA's.
TEST(PowerMonitorRound, FpgaStatusesFromTheirSgpio)
{
    struct Case
    {
        bool ubbFault;
        int smc; // 0 clean, 1 fault bits, -1 silent
        bool ubbStatus;
        bool smcStatus;
    };
    const Case cases[] = {
        {false, 0, true, true},   {false, 1, true, false},
        {false, -1, true, false}, {true, 0, false, true},
        {true, 1, false, true},   {true, -1, false, false},
    };
    for (const Case& c : cases)
    {
        ubbsim::Scenario scenario = warmBoard(true);
        if (c.ubbFault)
        {
            scenario.faults.push_back(sgpio("ubb", 0x20));
        }
        if (c.smc != 0)
        {
            scenario.faults.push_back(c.smc == 1 ? sgpio("smc", 0x01)
                                                 : silent(12, 0x23));
        }
        PowerBoard b(scenario);
        round(b);

        SCOPED_TRACE(testing::Message() << c.ubbFault << " " << c.smc);
        EXPECT_EQ(b.state.ubbFpgaStatus, c.ubbStatus);
        EXPECT_EQ(b.state.smcFpgaStatus, c.smcStatus);
        EXPECT_THAT(b.published("UBBFPGAStatus"),
                    ElementsAre(c.ubbStatus ? "True" : "False"));
        EXPECT_THAT(b.published("SMCFPGAStatus"),
                    ElementsAre(c.smcStatus ? "True" : "False"));
        EXPECT_FALSE(b.state.baseDownRequest);
        if (!c.ubbFault && c.smc == 0)
        {
            EXPECT_GE(b.fx.seconds(), 17.0);
            EXPECT_LT(b.fx.seconds(), 18.0);
            EXPECT_THAT(b.fx.fake.zellib.calls(ZellibCall::Kind::log),
                        IsEmpty());
        }
    }
}

uint8_t status(int bus, uint8_t address)
{
    int event = 0;
    uint8_t value = 0xAA;
    EXPECT_TRUE(I2CSmbusReadBlock(&event, bus, address, 0xE0, &value, 1));
    return value;
}

// Fault bits are cleared by writing them back; 0x08 and 0x80 are no faults
// and stay. Initialisation clears every set bit.
TEST(Sgpio, FaultBitsAreClearedByWritingThemBack)
{
    {
        VirtualBoardFixture fx(
            runningWith({sgpio("ubb", 0x88 | 0x04), sgpio("smc", 0x88)}));
        OrvaneSvcState state;
        EXPECT_EQ(ReadUbbFpgaSgpio(state), 0);
        EXPECT_EQ(status(3, 0x56), 0x00);
        EXPECT_EQ(ReadUbbFpgaSgpio(state), 1);
        EXPECT_EQ(ReadSmcFpgaSgpio(), 0);
        EXPECT_EQ(status(12, 0x23), 0x88);
    }
    VirtualBoardFixture fx(
        runningWith({sgpio("smc", 0x88), sgpio("ubb", 0x11)}));
    std::string out = console([] {
        InitSmcFpgaSgpio();
        InitUbbFpgaSgpio();
    });
    EXPECT_EQ(status(12, 0x23), 0x00);
    EXPECT_EQ(status(3, 0x56), 0x00);
    EXPECT_THAT(out, HasSubstr("Success to clear the bits of UBB "
                               "FPGA SGPIO status. Current status: "
                               "0x0"));
}

// A fault and an RM that can't be read both end the supervising loop's
// retries.
TEST(RmEfuse, FaultOrMissingRmFailsTheCheck)
{
    ubbsim::Fault efuse = faultOf("efuse");
    efuse.oam = 2;
    efuse.value = 0x01;
    struct Case
    {
        std::vector<ubbsim::Fault> faults;
        uint32_t result;
        const char* line;
    };
    // clang-format off
    const Case cases[] = {
        {{}, 1, ""},
        {{efuse}, 0, "RM2 detect the eFuse state fault,eFuse value 0x1"},
        {{silent(7, 0x56)}, 0, "Fail to read RM2(channel 7) slave address 0x56 register address 0xf24b"},
    };
    // clang-format on
    for (const Case& c : cases)
    {
        VirtualBoardFixture fx(runningWith(c.faults));
        OrvaneSvcState state;
        std::string out = console([&] {
            EXPECT_EQ(CheckRmEfuseFault(state) != 0, c.result != 0) << c.line;
        });
        EXPECT_THAT(out, HasSubstr(c.line));
    }
}

} // namespace
} // namespace orvane::test
