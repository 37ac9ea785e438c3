#include "fakes/bus_fixture.hpp"
#include "utils/dbus_handler.hpp"

#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <variant>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr const char* service = "xyz.openbmc_project.Orvane";
constexpr const char* object = "/xyz/openbmc_project/Orvane";
constexpr const char* child = "/xyz/openbmc_project/Orvane/Board";
constexpr const char* status = "xyz.openbmc_project.Orvane.Status";

template <typename Call>
std::string console(Call call)
{
    ::testing::internal::CaptureStdout();
    call();
    return ::testing::internal::GetCapturedStdout();
}

size_t openDescriptors()
{
    return static_cast<size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                      std::filesystem::directory_iterator()));
}

// A stand-in for the daemon's own service with a few properties.
class BusPropertyTest : public BusTest
{
  protected:
    void SetUp() override
    {
        stand.addProperty(object, status, "PowerState", std::string("Off"));
        stand.addProperty(object, status, "StandbyReady", std::string("False"));
        stand.addProperty(object, status, "FaultCount", uint32_t{3});
        stand.addProperty(child, status, "PowerState", std::string("On"));
        stand.start();
    }

    BusResponder stand{service};
};

TEST_F(BusPropertyTest, SetSendsTheValueAsAString)
{
    std::string out =
        console([] { SetBusProperty(status, "StandbyReady", "True"); });

    EXPECT_THAT(out, IsEmpty());
    EXPECT_THAT(stand.writes(object, status, "StandbyReady"),
                ElementsAre(BusValue(std::string("True"))));
}

TEST_F(BusPropertyTest, GetReadsTheObjectAskedFor)
{
    EXPECT_EQ(GetBusProperty(object, status, "PowerState"), "Off");
    EXPECT_EQ(GetBusProperty(child, status, "PowerState"), "On");

    SetBusProperty(status, "PowerState", "On");
    EXPECT_EQ(GetBusProperty(object, status, "PowerState"), "On");
}

// Whatever goes wrong, the caller goes on and one line tells why.
TEST_F(BusPropertyTest, FailedSetLeavesOneLine)
{
    struct Case
    {
        const char* interface;
        const char* property;
    };
    for (Case c : {Case{status, "NoSuchProperty"},
                   Case{"xyz.openbmc_project.Orvane.Missing", "PowerState"},
                   Case{status, "FaultCount"}}) // not a string property
    {
        std::string out =
            console([&] { SetBusProperty(c.interface, c.property, "x"); });

        EXPECT_THAT(out, AllOf(HasSubstr("[ERROR \"dbus_handler.cpp\":"),
                               HasSubstr(std::string("] Set Dbus property - ") +
                                         c.property +
                                         " is unreachable in Dbus interface " +
                                         c.interface + "\n")));
        EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1) << out;
    }
    EXPECT_EQ(stand.property(object, status, "FaultCount"),
              BusValue(uint32_t{3}));
}

TEST_F(BusPropertyTest, FailedGetGivesAnEmptyString)
{
    std::string out;
    out += console([] {
        EXPECT_EQ(GetBusProperty(object, status, "NoSuchProperty"), "");
    });
    out += console([] {
        EXPECT_EQ(GetBusProperty("/xyz/openbmc_project/Nowhere", status,
                                 "PowerState"),
                  "");
    });

    EXPECT_THAT(out, AllOf(HasSubstr("[ERROR \"dbus_handler.cpp\":"),
                           HasSubstr("] failed to make a d-bus call get "
                                     "NoSuchProperty property fail, ERROR= "),
                           HasSubstr("] failed to make a d-bus call get "
                                     "PowerState property fail, ERROR= ")));
}

TEST_F(BusPropertyTest, GetOfANonStringPropertyIsACallerMistake)
{
    EXPECT_THROW(GetBusProperty(object, status, "FaultCount"),
                 std::bad_variant_access);
}

TEST_F(BusPropertyTest, CallsGiveTheirConnectionsBack)
{
    // Warm up whatever the library keeps for the life of the process.
    SetBusProperty(status, "PowerState", "On");
    GetBusProperty(object, status, "PowerState");
    size_t before = openDescriptors();

    for (int i = 0; i < 20; ++i)
    {
        SetBusProperty(status, "PowerState", i % 2 == 0 ? "On" : "Off");
        GetBusProperty(object, status, "PowerState");
        console([] { GetBusProperty(object, status, "NoSuchProperty"); });
    }

    EXPECT_EQ(openDescriptors(), before);
}

using BusUnreachableTest = BusTest;

TEST_F(BusUnreachableTest, ServiceAbsent)
{
    std::string out = console([] {
        SetBusProperty(status, "PowerState", "On");
        EXPECT_EQ(GetBusProperty(object, status, "PowerState"), "");
    });

    EXPECT_THAT(out,
                AllOf(HasSubstr("] Set Dbus property - PowerState is "
                                "unreachable in Dbus interface " +
                                std::string(status)),
                      HasSubstr("] failed to make a d-bus call get PowerState "
                                "property fail, ERROR= "),
                      HasSubstr("org.freedesktop.DBus.Error.ServiceUnknown")));
}

TEST_F(BusUnreachableTest, NoBusAtAll)
{
    // Restored by the fixture's bus at the end of the test.
    setenv("DBUS_SYSTEM_BUS_ADDRESS",
           ("unix:path=" + std::filesystem::temp_directory_path().string() +
            "/orvane-no-such-bus.sock")
               .c_str(),
           1);

    std::string out = console([] {
        SetBusProperty(status, "PowerState", "On");
        EXPECT_EQ(GetBusProperty(object, status, "PowerState"), "");
    });

    EXPECT_THAT(out, AllOf(HasSubstr("] Set Dbus property - PowerState"),
                           HasSubstr("ERROR= sd_bus_open_system: ")));
}

// The test bus itself: it must leave nothing behind, or later tests and the
// CI run would meet a stale daemon or environment.
TEST(BusFixtureTest, PrivateBusLeavesNothingBehind)
{
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/before", 1);
    pid_t daemon = -1;
    std::filesystem::path socket;
    {
        PrivateBus bus;
        daemon = bus.pid();
        ASSERT_THAT(bus.address(), StartsWith("unix:path="));
        socket = bus.address().substr(std::string("unix:path=").size());
        EXPECT_EQ(std::string(std::getenv("DBUS_SYSTEM_BUS_ADDRESS")),
                  bus.address());
        EXPECT_TRUE(std::filesystem::exists(socket));
    }
    EXPECT_EQ(std::string(std::getenv("DBUS_SYSTEM_BUS_ADDRESS")),
              "unix:path=/before");
    EXPECT_FALSE(std::filesystem::exists(socket.parent_path()));
    EXPECT_EQ(kill(daemon, 0), -1); // reaped, not a zombie
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

TEST_F(BusUnreachableTest, StoppedResponderLetsItsNameGo)
{
    BusResponder stand{service};
    stand.addProperty(object, status, "PowerState", std::string("Off"));
    stand.start();
    EXPECT_EQ(GetBusProperty(object, status, "PowerState"), "Off");

    stand.stop();

    std::string out = console(
        [] { EXPECT_EQ(GetBusProperty(object, status, "PowerState"), ""); });
    EXPECT_THAT(out, HasSubstr("org.freedesktop.DBus.Error.ServiceUnknown"));
}

} // namespace
} // namespace orvane::test
