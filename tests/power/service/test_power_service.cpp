#include "power_board.hpp"

#include "fakes/bus_fixture.hpp"
#include "fakes/console_capture.hpp"
#include "fakes/fake_platform.hpp"
#include "neighbours/neighbours.hpp"
#include "orvane/power_service.hpp"
#include "orvane/rail_engine.hpp"
#include "orvane/rail_tables.hpp"
#include "orvane/update_bits.hpp"
#include "secure-boot/secure_boot_status.hpp"
#include "utils/dbus_handler.hpp"
#include "utils/i2c_ops.hpp"

#include <dlfcn.h>
#include <sdbus-c++/sdbus-c++.h>
#include <systemd/sd-bus.h>

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{
// The one interface that the bus library below refuses.
constexpr const char* refusedInterface =
    "xyz.openbmc_project.Orvane.VR_Info.OAM_3.VR5";
} // namespace
} // namespace orvane::test

// sd-bus for this program, refusing one interface as it refuses one that is
// already on its path; everything else goes to the library.
extern "C" int sd_bus_add_object_vtable(sd_bus* bus, sd_bus_slot** slot,
                                        const char* path, const char* interface,
                                        const sd_bus_vtable* vtable,
                                        void* userdata)
{
    using Real = int (*)(sd_bus*, sd_bus_slot**, const char*, const char*,
                         const sd_bus_vtable*, void*);
    static const auto real =
        reinterpret_cast<Real>(::dlsym(RTLD_NEXT, "sd_bus_add_object_vtable"));
    if (std::string_view(interface) == orvane::test::refusedInterface)
    {
        return -EEXIST;
    }
    return real(bus, slot, path, interface, vtable, userdata);
}

namespace orvane::test
{
namespace
{

using namespace ::testing;
using namespace std::chrono_literals;

constexpr const char* chassisOn =
    "xyz.openbmc_project.State.Chassis.PowerState.On";
constexpr const char* chassisOff =
    "xyz.openbmc_project.State.Chassis.PowerState.Off";

std::string status(const std::string& name)
{
    return GetBusProperty(powerStatusPath, powerStatusInterface, name);
}

// The daemon's service on a private bus, shared by the whole program since
// RunDbusService only returns when the bus goes away.
class ServiceBus : public ::testing::Environment
{
  public:
    void SetUp() override
    {
        platform = std::make_unique<FakePlatform>();
        bus = std::make_unique<PrivateBus>();
        state.standbyPowerStatus = true;
        state.oamErrorInjection = true;
        state.smcFpgaStatus = true;

        startOutput = console([this] {
            thread = std::thread([this] { RunDbusService(state); });
            ASSERT_TRUE(eventually([] { return DbusReady(); }));
        });
        for (const char* name :
             {"StandbyPowerStatus", "BasePowerStatus", "OAMErrorInjection",
              "UBBFPGAStatus", "SMCFPGAStatus", "ServerResetStatus"})
        {
            initial[name] = status(name);
        }
    }

    void TearDown() override
    {
        // The event loop ends with the bus, and so does the thread.
        std::string out = console([this] {
            bus.reset();
            thread.join();
        });
        EXPECT_THAT(out, HasSubstr("] Dbus service xyz.openbmc_project.Orvane "
                                   "stopped: "));
        platform.reset();
    }

    OrvaneSvcState state;
    std::map<std::string, std::string> initial;
    std::string startOutput;

  private:
    std::unique_ptr<FakePlatform> platform;
    std::unique_ptr<PrivateBus> bus;
    std::thread thread;
};

ServiceBus* const service = dynamic_cast<ServiceBus*>(
    ::testing::AddGlobalTestEnvironment(new ServiceBus));

TEST(PowerService, FirstValuesComeFromTheState)
{
    EXPECT_EQ(service->initial, (std::map<std::string, std::string>{
                                    {"StandbyPowerStatus", "On"},
                                    {"BasePowerStatus", "Off"},
                                    {"OAMErrorInjection", "Enable"},
                                    {"UBBFPGAStatus", "False"},
                                    {"SMCFPGAStatus", "True"},
                                    {"ServerResetStatus", "False"},
                                }));
}

using Properties = std::map<std::string, sdbus::Variant>;

TEST(PowerService, SetPropertyPublishesTheTexts)
{
    struct Case
    {
        const char* name;
        uint32_t value;
        const char* text;
    };
    const Case cases[] = {
        {"UBBFPGAStatus", 2, "True"},
        {"UBBFPGAStatus", 0, "False"},
        {"OAMErrorInjection", 0, "Disable"},
        {"StandbyPowerStatus", 0, "Off"},
    };
    for (const Case& c : cases)
    {
        std::string out = console([&] { set_property(c.name, c.value); });
        EXPECT_EQ(status(c.name), c.text) << c.name << " " << c.value;
        EXPECT_EQ(out, "") << c.name;
    }

    // A misspelt name: the line, and no call that would add one of its own.
    std::string out = console([] { set_property("UBBFpgaStatus", 1); });
    EXPECT_THAT(out, HasSubstr("[ERROR \"power_service.cpp\":"));
    EXPECT_THAT(out, HasSubstr("] [set_property] Dbus property UBBFpgaStatus "
                               "is unreachable in Dbus interface "
                               "xyz.openbmc_project.Orvane.Power_Status\n"));
    EXPECT_EQ(occurrences(out, "\n"), 1u) << out;
    EXPECT_EQ(status("UBBFPGAStatus"), "False");
}

// A write announces itself once; the same value again announces nothing.
TEST(PowerService, ChangesAreAnnounced)
{
    set_property("ServerResetStatus", 0);
    std::mutex mutex;
    std::vector<std::string> seen;
    auto proxy = sdbus::createProxy(orvaneBusName, powerStatusPath);
    proxy->uponSignal("PropertiesChanged")
        .onInterface("org.freedesktop.DBus.Properties")
        .call([&](const std::string&, const Properties& changed,
                  const std::vector<std::string>&) {
            std::lock_guard lock(mutex);
            for (const auto& [name, value] : changed)
            {
                seen.push_back(name + "=" + value.get<std::string>());
            }
        });
    proxy->finishRegistration();

    set_property("ServerResetStatus", 1);
    set_property("ServerResetStatus", 1);
    set_property("ServerResetStatus", 0);

    auto count = [&] {
        std::lock_guard lock(mutex);
        return seen.size();
    };
    ASSERT_TRUE(eventually([&] { return count() >= 2; }));
    std::this_thread::sleep_for(100ms);
    std::lock_guard lock(mutex);
    EXPECT_THAT(seen, ::testing::ElementsAre("ServerResetStatus=True",
                                             "ServerResetStatus=False"));
}

TEST(PowerService, BasePowerGoesToTheChassis)
{
    FakePlatform fake;
    ubbsim::Neighbours neighbours(VirtualBoardFixture::healthyBoard());
    neighbours.start();

    std::string out = console([] { set_property("BasePowerStatus", 1); });
    EXPECT_EQ(status("BasePowerStatus"), "On");
    EXPECT_EQ(neighbours.chassisPowerState(), chassisOn);
    EXPECT_THAT(out, HasSubstr("] The current Chassis Power state set to: "
                               "On\n"));

    out = console([] { set_property("BasePowerStatus", 0); });
    EXPECT_EQ(neighbours.chassisPowerState(), chassisOff);
    EXPECT_THAT(out, HasSubstr("set to: Off\n"));
    EXPECT_TRUE(fake.clock.sleeps().empty());
}

// Without the state manager: eleven tries 3 s apart, then the caller goes on.
TEST(PowerService, MissingChassisServiceCostsElevenTries)
{
    FakePlatform fake;
    std::string out = console([] { set_property("BasePowerStatus", 1); });

    EXPECT_EQ(status("BasePowerStatus"), "On");
    EXPECT_EQ(fake.clock.sleeps(),
              std::vector<std::chrono::nanoseconds>(10, 3s));
    EXPECT_EQ(occurrences(out, "] SetChassisCurrentPowerState D-Bus failed: "
                               "sd_bus_call: "
                               "org.freedesktop.DBus.Error.ServiceUnknown: "),
              10u);
    EXPECT_THAT(out, HasSubstr(". Starting retry#10\n"));
    EXPECT_THAT(out, HasSubstr("] SetChassisCurrentPowerState D-Bus error: "
                               "sd_bus_call: "
                               "org.freedesktop.DBus.Error.ServiceUnknown: "));
    // The error text ends in a line feed of its own.
    EXPECT_THAT(out, ::testing::EndsWith("\n\n"));
    EXPECT_EQ(occurrences(out, "\n"), 12u);
}

// A VR interface that the bus library refuses costs only itself.
TEST(PowerService, RefusedVrInterfaceLeavesTheOthersUp)
{
    EXPECT_EQ(occurrences(service->startOutput,
                          std::string("] Dbus interface ") + refusedInterface +
                              " register property fail.\n"),
              1u)
        << service->startOutput;
    auto name = [](const std::string& path, const std::string& interface) {
        auto proxy = sdbus::createProxy(orvaneBusName, path);
        return proxy->getProperty("Name").onInterface(interface);
    };
    const std::string oam3 = std::string(vrInfoPath) + "/OAM_3";
    const std::string vr = std::string(vrInfoInterface) + ".OAM_3.VR";
    EXPECT_THROW(name(oam3, vr + "5"), sdbus::Error);
    EXPECT_NO_THROW(name(oam3, vr + "6"));
    EXPECT_NO_THROW(name(std::string(vrInfoPath) + "/UBB",
                         std::string(vrInfoInterface) + ".UBB.VR12"));
}

using Kind = I2cOp::Kind;

// The rails on the virtual board, with the expander's banks made outputs
// as the SMC FPGA's set-up leaves them.
class RailBoardTest : public ::testing::Test
{
  protected:
    explicit RailBoardTest(const ubbsim::Scenario& scenario =
                               VirtualBoardFixture::healthyBoard()) :
        fx(scenario)
    {
        for (uint8_t direction = 0x18; direction <= 0x1B; ++direction)
        {
            EXPECT_TRUE(I2CWriteMemoryByte(&errorCode, railChannel, railAddress,
                                           direction, 0x00));
        }
    }

    bool switchRails(RailList rails, uint8_t bank, bool on)
    {
        return EnableRails(state, errorCode, rails, railAddress, bank,
                           railChannel, on);
    }

    uint8_t bankValue(uint8_t bank)
    {
        uint8_t value = 0;
        EXPECT_TRUE(I2CSmbusReadBlock(&errorCode, railChannel, railAddress,
                                      bank, &value, 1));
        return value;
    }

    VirtualBoardFixture fx;
    OrvaneSvcState state;
    int errorCode = 0;
};

TEST_F(RailBoardTest, HealthyRailsComeUpOneWriteEach)
{
    std::string out =
        console([&] { EXPECT_TRUE(switchRails(fpgaRailsOn, fpgaBank, true)); });

    EXPECT_EQ(bankValue(fpgaBank), 0x1F);
    EXPECT_THAT(out, HasSubstr("] Addr 0x0025 Bank 0x08 Value is 0x01\n"));
    EXPECT_EQ(occurrences(out, "] Addr 0x0025 Bank 0x08 Value is 0x"), 5u);
    EXPECT_EQ(state.sequenceEvent, sequence_event::none);
    // 100 ms of settling per rail, no retry pause.
    EXPECT_GT(fx.seconds(), 0.5);
    EXPECT_LT(fx.seconds(), 0.6);
}

ubbsim::Scenario stuckBram()
{
    ubbsim::Scenario scenario = withFault("railNoPowerGood");
    scenario.faults.back().rail = "VCC_BRAM_FPGA";
    return scenario;
}

// A rail that never comes good costs three attempts and stops the list.
class StuckRailTest : public RailBoardTest
{
  protected:
    StuckRailTest() : RailBoardTest(stuckBram())
    {}
};

TEST_F(StuckRailTest, ThreeAttemptsThenTheRailsEvent)
{
    std::string out = console(
        [&] { EXPECT_FALSE(switchRails(fpgaRailsOn, fpgaBank, true)); });

    EXPECT_EQ(state.sequenceEvent, 2u);
    EXPECT_EQ(occurrences(out, "] Addr 0x0025 Bank 0x08 Value is 0x11\n"), 3u);
    EXPECT_EQ(occurrences(out, "] VCC_BRAM_FPGA Fail: Cannot get the power "
                               "good signal\n"),
              2u);
    EXPECT_THAT(out, HasSubstr("] VCC_BRAM_FPGA Fail: Retry 2\n"));
    EXPECT_THAT(out, HasSubstr("] VCC_BRAM_FPGAfail after a third\n"));
    // The later rails are left alone, the earlier one stays on.
    EXPECT_EQ(bankValue(fpgaBank), 0x11);
    // Reads succeeded throughout: nothing for the I2C log.
    EXPECT_TRUE(fx.fake.zellib.calls(ZellibCall::Kind::i2cLog).empty());
    // 0.1 s for VCCINT, then 3 x (100 ms + 2000 ms + 1 s).
    EXPECT_GT(fx.seconds(), 9.4);
    EXPECT_LT(fx.seconds(), 9.6);
}

// A device that doesn't answer: three immediate attempts, each reported
// with the I2C code, and no progress mark.
TEST(RailEngine, EnableFailureIsReportedWithTheI2CCode)
{
    FakePlatform fake;
    fake.i2c.addBus(railChannel);
    OrvaneSvcState state;
    state.sequenceEvent = 7;
    int errorCode = 0;

    std::string out = console([&] {
        EXPECT_FALSE(EnableRails(state, errorCode,
                                 RailList(fpgaRailsOn).first(1), railAddress,
                                 fpgaBank, railChannel, true));
    });

    EXPECT_EQ(state.sequenceEvent, 7u);
    EXPECT_TRUE(fake.clock.sleeps().empty());
    EXPECT_THAT(out, HasSubstr("] VCCINT_FPGA Fail:VCCINT_FPGA is failed to "
                               "enable\n"));
    EXPECT_EQ(occurrences(out, "] VCCINT_FPGA Fail by i2c error\n"), 2u);
    EXPECT_THAT(out, HasSubstr("] VCCINT_FPGAfail after a third\n"));

    auto records = fake.zellib.calls(ZellibCall::Kind::i2cLog);
    ASSERT_EQ(records.size(), 3u);
    for (size_t i = 0; i < records.size(); ++i)
    {
        EXPECT_EQ(records[i].level, i < 2 ? 4 : 2);
        EXPECT_EQ(records[i].i2c->message,
                  "Power Sequence: VCCINT_FPGA is failed to enable. Retry " +
                      std::to_string(i + 1));
        EXPECT_EQ(records[i].i2c->reg, fpgaBank);
        EXPECT_TRUE(records[i].i2c->readFailed);
    }
}

// Power good readings on a fake bus whose time moves with each transfer.
class PowerGoodReadingTest : public ::testing::Test
{
  protected:
    PowerGoodReadingTest()
    {
        fake.i2c.setObserver([this](const I2cOp&) {
            fake.clock.advance(std::chrono::milliseconds(1));
        });
    }

    bool wait(int bus, uint8_t address, uint8_t reg, uint8_t raw, uint8_t mask,
              bool on)
    {
        fake.i2c.setRegister(bus, address, reg, raw);
        int errorCode = 0;
        return WaitPowerGood(state, errorCode, bus, address, reg, mask, on,
                             value);
    }

    FakePlatform fake;
    OrvaneSvcState state;
    uint8_t value = 0xAA;
};

TEST_F(PowerGoodReadingTest, AnyMaskBitMeansOn)
{
    EXPECT_TRUE(wait(14, 0x27, 0x04, 0x04, 0x0F, true));
    EXPECT_EQ(value, 0x04);
    EXPECT_EQ(fake.i2c.operations(I2cOp::Kind::smbusReadBlock).size(), 1u);

    EXPECT_TRUE(wait(14, 0x27, 0x04, 0xF0, 0x0F, false));
    EXPECT_EQ(value, 0x00);

    // Waiting for off while one bit stays up: 2000 ms of polling.
    const auto start = fake.clock.steadyNow();
    EXPECT_FALSE(wait(14, 0x27, 0x04, 0x04, 0x0F, false));
    EXPECT_EQ(value, 0x04);
    EXPECT_GT(fake.clock.steadyNow() - start, std::chrono::milliseconds(2000));
    EXPECT_LT(fake.clock.steadyNow() - start, std::chrono::milliseconds(2010));
}

// Unexpected readings of the board's power good registers raise a critical
// event, but only while standby and base power are both on.
TEST_F(PowerGoodReadingTest, DiagnosticEventsOnlyWithBothPowersOn)
{
    struct Case
    {
        int bus;
        uint8_t address;
        uint8_t reg;
        uint8_t raw;
        std::string argument; // empty: no event
        std::string textEnd;
    };
    // clang-format off
    const Case cases[] = {
        {14, 0x27, 0x04, 0x07, "HSC power good,Critical Value 0x7", "(Not equal 0x0f). I2C bus 14; Slave address 0x27; Register offset 0x04; Reading value: 0x7"},
        {14, 0x27, 0x04, 0xEF, "", ""},
        // Compared with 0xFF although its event text names 0xcf.
        {4, 0x25, 0x03, 0xCF, "UBB power good,Critical Value 0xCF", "(Not equal 0xcf). I2C bus 4; Slave address 0x25; Register offset 0x03; Reading value: 0xcf"},
        {4, 0x25, 0x01, 0x01, "", ""}, // not a watched register
    };
    // clang-format on
    for (const Case& c : cases)
    {
        for (bool base : {false, true})
        {
            SCOPED_TRACE("raw " + std::to_string(c.raw));
            fake.zellib.clear();
            state.standbyPowerStatus = true;
            state.basePowerStatus = base;
            EXPECT_TRUE(wait(c.bus, c.address, c.reg, c.raw, 0x01, true));

            auto events = fake.zellib.calls(ZellibCall::Kind::nvLog);
            if (!base || c.argument.empty())
            {
                EXPECT_TRUE(events.empty());
                continue;
            }
            ASSERT_EQ(events.size(), 1u);
            EXPECT_EQ(events[0].level, 2);
            EXPECT_EQ(events[0].messageId,
                      "ResourceEvent.1.2.1.ResourceStatusChangedCriticalOEM");
            EXPECT_EQ(events[0].arg1, c.argument);
            EXPECT_THAT(events[0].message, EndsWith(c.textEnd));
        }
    }
}

constexpr int bus = 4;
constexpr uint8_t device = 0x25;
constexpr uint8_t reg = 0x0A;

// Both forms of the read-modify-write, which take their results in the same
// order.
struct Form
{
    const char* name;
    bool (*update)(int& code, uint8_t mask, uint8_t& written, uint8_t& readback,
                   bool on, bool verify);
};

const Form forms[] = {
    {"OneTry",
     [](int& code, uint8_t mask, uint8_t& written, uint8_t& readback, bool on,
        bool verify) {
         OrvaneSvcState state;
         return UpdateBits(state, code, bus, device, reg, mask, written,
                           readback, on, verify);
     }},
    {"Retrying",
     [](int& code, uint8_t mask, uint8_t& written, uint8_t& readback, bool on,
        bool verify) {
         OrvaneSvcState state;
         return UpdateBitsRetry(state, code, 3, bus, device, reg, mask, written,
                                readback, on, verify, true, "Bank");
     }},
};

class UpdateBitsTest : public ::testing::TestWithParam<Form>
{
  protected:
    UpdateBitsTest()
    {
        fake.i2c.addDevice(bus, device);
    }

    bool update(uint8_t mask, bool on, bool verify)
    {
        fake.i2c.clearOperations();
        written = readback = 0xAA;
        return GetParam().update(code, mask, written, readback, on, verify);
    }

    size_t count(Kind kind) const
    {
        return fake.i2c.operations(kind).size();
    }

    FakePlatform fake;
    int code = 0;
    uint8_t written = 0;
    uint8_t readback = 0;
};

// The mask is ORed in for on and ANDed as it stands for off.
TEST_P(UpdateBitsTest, ReadModifyWrite)
{
    fake.i2c.setRegister(bus, device, reg, 0x41);
    EXPECT_TRUE(update(0x02, true, true));
    EXPECT_EQ(std::tuple(written, readback, count(Kind::smbusReadBlock)),
              std::tuple(0x43, 0x43, 2U));
    EXPECT_THAT(fake.i2c.operations(Kind::write)[0].bytes,
                ElementsAre(reg, 0x43));

    EXPECT_TRUE(update(0xBF, false, false));
    EXPECT_EQ(std::tuple(written, readback, count(Kind::smbusReadBlock)),
              std::tuple(0x03, 0x00, 1U));
}

// A device that drops a bit it was given: the read-back shows what it kept.
TEST_P(UpdateBitsTest, WrittenAndReadBackAreDistinct)
{
    fake.i2c.setObserver([this](const I2cOp& op) {
        if (op.kind == Kind::write && op.bytes.size() == 2)
        {
            fake.i2c.setRegister(bus, device, reg, op.bytes[1] & 0x7F);
        }
    });
    EXPECT_TRUE(update(0x81, true, true));
    EXPECT_EQ(written, 0x81);
    EXPECT_EQ(readback, 0x01);
}

TEST_P(UpdateBitsTest, FailedStepIsNamedAndEndsTheUpdate)
{
    fake.i2c.inject({Kind::smbusReadBlock, bus, device});
    std::string out = console([&] { EXPECT_FALSE(update(0x02, true, true)); });
    EXPECT_THAT(out, HasSubstr("] Fail to Read Channel 4 Slave address 0x0025 "
                               "Register 0x0a\n"));
    EXPECT_EQ(count(Kind::write), 0u);

    fake.i2c.clearFaults();
    fake.i2c.inject({Kind::write, bus, device});
    out = console([&] { EXPECT_FALSE(update(0x02, true, true)); });
    EXPECT_THAT(out, HasSubstr("] Fail to Write Channel 4 Slave address "
                               "0x0025 Register 0x0a\n"));
    EXPECT_EQ(count(Kind::smbusReadBlock), 1u);
    EXPECT_EQ(code, 4);
}

INSTANTIATE_TEST_SUITE_P(Forms, UpdateBitsTest, ::testing::ValuesIn(forms),
                         [](const auto& info) { return info.param.name; });

// The retrying form rides out short trouble; `check` decides whether the
// failed attempts reach the I2C log.
TEST(UpdateBitsRetry, CheckDecidesWhatIsReported)
{
    for (bool check : {true, false})
    {
        FakePlatform fake;
        fake.i2c.addDevice(bus, device);
        fake.i2c.inject({Kind::write, bus, device, EIO, 2});
        OrvaneSvcState state;
        int code = 0;
        uint8_t readback = 0;
        uint8_t written = 0;

        console([&] {
            EXPECT_TRUE(UpdateBitsRetry(state, code, 3, bus, device, reg, 0x02,
                                        written, readback, true, true, check,
                                        "Expander bank"));
        });
        EXPECT_EQ(fake.i2c.operations(Kind::write).size(), 3u);
        auto records = fake.zellib.calls(ZellibCall::Kind::i2cLog);
        if (!check)
        {
            EXPECT_TRUE(records.empty());
            continue;
        }
        ASSERT_EQ(records.size(), 2u);
        EXPECT_EQ(records[0].i2c->message, "Expander bank failure. Retry 1");
        EXPECT_TRUE(records[1].i2c->writeFailed);
    }
}

} // namespace
} // namespace orvane::test
