#include "fakes/bus_fixture.hpp"
#include "fakes/console_capture.hpp"
#include "utils/dbus_handler.hpp"
#include "utils/mctp_call.hpp"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using namespace ::testing;

constexpr const char* service = "xyz.openbmc_project.Orvane";
constexpr const char* object = "/xyz/openbmc_project/Orvane";
constexpr const char* child = "/xyz/openbmc_project/Orvane/Board";
constexpr const char* status = "xyz.openbmc_project.Orvane.Status";

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

// A set sends the value as a string; a get reads the object asked for.
TEST_F(BusPropertyTest, SetAndGet)
{
    std::string out =
        console([] { SetBusProperty(status, "StandbyReady", "True"); });
    EXPECT_THAT(out, IsEmpty());
    EXPECT_THAT(stand.writes(object, status, "StandbyReady"),
                ElementsAre(BusValue(std::string("True"))));

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

// A non-string property is a caller mistake.
TEST_F(BusPropertyTest, FailedGetGivesAnEmptyString)
{
    std::string out = console([] {
        EXPECT_EQ(GetBusProperty(object, status, "NoSuchProperty"), "");
        EXPECT_EQ(GetBusProperty("/xyz/openbmc_project/Nowhere", status,
                                 "PowerState"),
                  "");
    });
    EXPECT_THAT(out, AllOf(HasSubstr("[ERROR \"dbus_handler.cpp\":"),
                           HasSubstr("] failed to make a d-bus call get "
                                     "NoSuchProperty property fail, ERROR= "),
                           HasSubstr("] failed to make a d-bus call get "
                                     "PowerState property fail, ERROR= ")));
    EXPECT_THROW(GetBusProperty(object, status, "FaultCount"),
                 std::bad_variant_access);
}

using Bytes = std::vector<uint8_t>;

const MctpEndpointService endpoint{"xyz.openbmc_project.MCTP.Endpoint.Test",
                                   "/xyz/openbmc_project/mctp/test",
                                   "xyz.openbmc_project.MCTP.Transfer"};

// What an endpoint method received, read on the responder's thread.
struct Received
{
    std::string signature;
    Bytes scalars;
    unsigned flag = 0;
    uint16_t timeout = 0;
    Bytes bytes;
};

// Reads a call's arguments as its signature says: bytes into scalars, the
// q into timeout, the boolean into flag, and the array that ends them.
void readArguments(sdbus::MethodCall& call, Received& got)
{
    got = {};
    std::string type;
    std::string contents;
    for (call.peekType(type, contents); type != "a";
         call.peekType(type, contents))
    {
        got.signature += type;
        uint8_t byte = 0;
        bool flag = false;
        if (type == "y")
        {
            call >> byte;
            got.scalars.push_back(byte);
        }
        else if (type == "q")
        {
            call >> got.timeout;
        }
        else
        {
            call >> flag;
            got.flag = flag;
        }
    }
    got.signature += "a" + contents;
    call >> got.bytes;
}

class MctpCallTest : public BusTest
{
  protected:
    // The endpoint answers MctpSendRecv with `answer` (or an int when
    // recvAsInt), the other two with `result`; each records what it
    // received, and fails with failWith when that is set.
    void startEndpoint(const std::string& recvResult = "ay")
    {
        auto handler = [this](bool bytesReply) {
            return [this, bytesReply](sdbus::MethodCall& call,
                                      sdbus::MethodReply& reply) {
                readArguments(call, received);
                if (failWith != 0)
                {
                    return failWith;
                }
                if (bytesReply && !recvAsInt)
                {
                    reply << answer;
                    return 0;
                }
                reply << (bytesReply ? 0 : result);
                return 0;
            };
        };
        peer.addMethod(endpoint.path, endpoint.interface, "MctpSendRecv",
                       "yqay", recvResult, handler(true));
        peer.addMethod(endpoint.path, endpoint.interface, "MctpSendAddress",
                       "yyybay", "i", handler(false));
        peer.addMethod(endpoint.path, endpoint.interface, "MctpSendBusOwner",
                       "ybay", "i", handler(false));
        peer.start();
    }

    Received seen()
    {
        auto lock = peer.hold();
        return received;
    }

    BusResponder peer{endpoint.service};
    // Set before the call; read by the handlers under the peer's lock.
    Bytes answer;
    int32_t result = 0;
    int failWith = 0;
    bool recvAsInt = false;
    Received received;
};

// Each call carries its arguments in its own signature. The bytes method
// appends the reply; the others give the endpoint's result, a negative one
// included, as a result and not a failure.
TEST_F(MctpCallTest, CallsCarryTheirArgumentsAndGiveTheResult)
{
    answer = {0x01, 0x00, 0xFE};
    result = -3;
    startEndpoint();
    Bytes response = {0xAA};
    struct Case
    {
        std::function<int()> call;
        int result;
        Received sent;
    };
    // clang-format off
    const Case cases[] = {
        {[&] { return MctpSendRecv(endpoint, 0x1D, 0xABCD, {0x00, 0x7F, 0x80, 0xFF}, response); }, 0, {"yqay", {0x1D}, 0, 0xABCD, {0x00, 0x7F, 0x80, 0xFF}}},
        {[&] { return MctpSendRecv(endpoint, 8, 100, {}, response); }, 0, {"yqay", {8}, 0, 100, {}}},
        {[] { return MctpSendAddress(endpoint, 0x01, 0x80, 0xFF, true, {0x05, 0x06}); }, -3, {"yyybay", {0x01, 0x80, 0xFF}, 1, 0, {0x05, 0x06}}},
        {[] { return MctpSendBusOwner(endpoint, 0x09, false, {0xEE}); }, -3, {"ybay", {0x09}, 0, 0, {0xEE}}},
    };
    // clang-format on
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.sent.signature);
        int r = 0;
        EXPECT_EQ(console([&] { r = c.call(); }), "");
        EXPECT_EQ(r, c.result);
        Received got = seen();
        EXPECT_EQ(std::tie(got.signature, got.scalars, got.flag, got.timeout,
                           got.bytes),
                  std::tie(c.sent.signature, c.sent.scalars, c.sent.flag,
                           c.sent.timeout, c.sent.bytes));
    }
    EXPECT_THAT(response, ElementsAre(0xAA, 1, 0, 0xFE, 1, 0, 0xFE));

    // An empty reply appends nothing.
    {
        auto lock = peer.hold();
        answer.clear();
    }
    EXPECT_EQ(MctpSendRecv(endpoint, 8, 100, {}, response), 0);
    EXPECT_THAT(response, SizeIs(7));
}

TEST_F(MctpCallTest, EndpointErrorIsTheResult)
{
    failWith = -EIO;
    startEndpoint();
    Bytes response = {0x01};

    std::string out = console([&] {
        EXPECT_EQ(MctpSendRecv(endpoint, 1, 2, {3}, response), -EIO);
        EXPECT_EQ(MctpSendAddress(endpoint, 1, 2, 3, true, {}), -EIO);
        EXPECT_EQ(MctpSendBusOwner(endpoint, 1, true, {}), -EIO);
    });

    EXPECT_THAT(response, ElementsAre(0x01));
    std::string line = "] sd_bus_call error code: " + std::to_string(-EIO);
    EXPECT_THAT(out,
                AllOf(HasSubstr("[ERROR \"mctp_call.cpp\":"), HasSubstr(line)));
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 3) << out;
}

TEST_F(MctpCallTest, ReplyOfTheWrongShape)
{
    recvAsInt = true;
    startEndpoint("i");
    Bytes response;

    int r = 0;
    std::string out =
        console([&] { r = MctpSendRecv(endpoint, 1, 2, {3}, response); });

    EXPECT_LT(r, 0);
    EXPECT_THAT(response, IsEmpty());
    EXPECT_THAT(out, HasSubstr("] sd_bus_message_enter_container error code: " +
                               std::to_string(r) + "\n"));
}

// Warmed up first: the library keeps some things for the process's life.
TEST_F(MctpCallTest, CallsGiveEverythingBack)
{
    answer = {1, 2, 3};
    startEndpoint();
    BusResponder stand{service};
    stand.addProperty(object, status, "PowerState", std::string("Off"));
    stand.start();
    Bytes response;
    MctpSendRecv(endpoint, 1, 2, {3}, response);
    SetBusProperty(status, "PowerState", "On");
    GetBusProperty(object, status, "PowerState");
    size_t before = openFileDescriptors();

    console([&] {
        for (int i = 0; i < 20; ++i)
        {
            SetBusProperty(status, "PowerState", i % 2 == 0 ? "On" : "Off");
            GetBusProperty(object, status, "PowerState");
            GetBusProperty(object, status, "NoSuchProperty");
            MctpSendRecv(endpoint, 1, 2, {3}, response);
            MctpSendAddress(endpoint, 1, 2, 3, true, {4});
            MctpSendBusOwner(endpoint, 1, true, {4});
            MctpSendRecv({"xyz.openbmc_project.MCTP.Nobody", endpoint.path,
                          endpoint.interface},
                         1, 2, {3}, response);
        }
    });

    EXPECT_EQ(openFileDescriptors(), before);
}

using BusUnreachableTest = BusTest;

// Whatever the bus does, the caller goes on and one line tells why.
TEST_F(BusUnreachableTest, NoBusAtAll)
{
    // Restored by the fixture's bus at the end of the test.
    setenv("DBUS_SYSTEM_BUS_ADDRESS",
           ("unix:path=" + std::filesystem::temp_directory_path().string() +
            "/orvane-no-such-bus.sock")
               .c_str(),
           1);

    int r = 0;
    std::string out = console([&] {
        SetBusProperty(status, "PowerState", "On");
        EXPECT_EQ(GetBusProperty(object, status, "PowerState"), "");
        r = MctpSendAddress(endpoint, 1, 2, 3, false, {});
    });

    EXPECT_THAT(out, AllOf(HasSubstr("] Set Dbus property - PowerState"),
                           HasSubstr("ERROR= sd_bus_open_system: ")));
    EXPECT_LT(r, 0);
    EXPECT_THAT(out, HasSubstr("] sd_bus_open_system error code: " +
                               std::to_string(r) + "\n"));
}

TEST_F(BusUnreachableTest, MalformedEndpointNames)
{
    int r = 0;
    std::string out = console([&] {
        r = MctpSendBusOwner({"not a bus name", "relative/path", "x"}, 1, true,
                             {});
    });

    EXPECT_LT(r, 0);
    EXPECT_THAT(out, HasSubstr("] sd_bus_message_new_method_call error code: " +
                               std::to_string(r) + "\n"));
}

} // namespace
} // namespace orvane::test
