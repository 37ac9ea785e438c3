#include "power_board.hpp"

#include "fakes/bus_fixture.hpp"
#include "fakes/console_capture.hpp"
#include "neighbours/neighbours.hpp"
#include "orvane/power_service.hpp"
#include "secure-boot/secure_boot_status.hpp"
#include "utils/dbus_handler.hpp"

#include <dlfcn.h>
#include <sdbus-c++/sdbus-c++.h>
#include <systemd/sd-bus.h>

#include <atomic>
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

using ::testing::HasSubstr;
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

TEST(PowerService, SecureBootStatusIsServedOnceReady)
{
    EXPECT_EQ(
        GetBusProperty(powerStatusPath, secureBootStatusInterface, "Status"),
        "Unknown");
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

} // namespace
} // namespace orvane::test
