#include "fakes/bus_fixture.hpp"
#include "utils/mctp_call.hpp"

#include <systemd/sd-bus.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

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

using Bytes = std::vector<uint8_t>;

const MctpEndpointService endpoint{"xyz.openbmc_project.MCTP.Endpoint.Test",
                                   "/xyz/openbmc_project/mctp/test",
                                   "xyz.openbmc_project.MCTP.Transfer"};

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

// The byte array that ends a call's arguments.
int readBytes(sd_bus_message* call, Bytes& out)
{
    const void* data = nullptr;
    size_t size = 0;
    int r = sd_bus_message_read_array(call, 'y', &data, &size);
    if (r >= 0 && size > 0)
    {
        const auto* bytes = static_cast<const uint8_t*>(data);
        out.assign(bytes, bytes + size);
    }
    return r;
}

// What an endpoint method received, read on the responder's thread.
struct Received
{
    std::string signature;
    Bytes scalars;
    unsigned flag = 0;
    uint16_t timeout = 0;
    Bytes bytes;
};

class MctpCallTest : public BusTest
{
  protected:
    // The endpoint answers MctpSendRecv with `answer`, the other two with
    // `result`; each records what it received.
    void startEndpoint(const std::string& recvResult = "ay")
    {
        peer.addMethod(
            endpoint.path, endpoint.interface, "MctpSendRecv", "yqay",
            recvResult, [this](sd_bus_message* call, sd_bus_message* reply) {
                record(call);
                uint8_t eid = 0;
                int r =
                    sd_bus_message_read(call, "yq", &eid, &received.timeout);
                received.scalars = {eid};
                if (r >= 0)
                {
                    r = readBytes(call, received.bytes);
                }
                if (r < 0 || failWith != 0)
                {
                    return r < 0 ? r : failWith;
                }
                if (recvAsInt)
                {
                    return sd_bus_message_append(reply, "i", 0);
                }
                return sd_bus_message_append_array(reply, 'y', answer.data(),
                                                   answer.size());
            });
        peer.addMethod(
            endpoint.path, endpoint.interface, "MctpSendAddress", "yyybay", "i",
            [this](sd_bus_message* call, sd_bus_message* reply) {
                record(call);
                uint8_t a = 0;
                uint8_t b = 0;
                uint8_t c = 0;
                int flag = 0;
                int r = sd_bus_message_read(call, "yyyb", &a, &b, &c, &flag);
                received.scalars = {a, b, c};
                received.flag = static_cast<unsigned>(flag);
                return r < 0 ? r : answerScalarCall(call, reply);
            });
        peer.addMethod(endpoint.path, endpoint.interface, "MctpSendBusOwner",
                       "ybay", "i",
                       [this](sd_bus_message* call, sd_bus_message* reply) {
                           record(call);
                           uint8_t a = 0;
                           int flag = 0;
                           int r = sd_bus_message_read(call, "yb", &a, &flag);
                           received.scalars = {a};
                           received.flag = static_cast<unsigned>(flag);
                           return r < 0 ? r : answerScalarCall(call, reply);
                       });
        peer.start();
    }

    void record(sd_bus_message* call)
    {
        received = {};
        received.signature = sd_bus_message_get_signature(call, 1);
    }

    int answerScalarCall(sd_bus_message* call, sd_bus_message* reply)
    {
        int r = readBytes(call, received.bytes);
        if (r < 0 || failWith != 0)
        {
            return r < 0 ? r : failWith;
        }
        return sd_bus_message_append(reply, "i", result);
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

TEST_F(MctpCallTest, SendRecvCarriesItsArgumentsAndAppendsTheReply)
{
    answer = {0x01, 0x00, 0xFE};
    startEndpoint();
    Bytes response = {0xAA};

    int r = 0;
    std::string out = console([&] {
        r = MctpSendRecv(endpoint, 0x1D, 0xABCD, {0x00, 0x7F, 0x80, 0xFF},
                         response);
    });

    EXPECT_EQ(r, 0);
    EXPECT_THAT(out, IsEmpty());
    EXPECT_THAT(response, ElementsAre(0xAA, 0x01, 0x00, 0xFE));
    Received got = seen();
    EXPECT_EQ(got.signature, "yqay");
    EXPECT_THAT(got.scalars, ElementsAre(0x1D));
    EXPECT_EQ(got.timeout, 0xABCD);
    EXPECT_THAT(got.bytes, ElementsAre(0x00, 0x7F, 0x80, 0xFF));
}

TEST_F(MctpCallTest, SendRecvWithEmptyArrays)
{
    startEndpoint();
    Bytes response = {0x10, 0x20};

    EXPECT_EQ(MctpSendRecv(endpoint, 8, 100, {}, response), 0);

    EXPECT_THAT(response, ElementsAre(0x10, 0x20));
    Received got = seen();
    EXPECT_EQ(got.signature, "yqay");
    EXPECT_THAT(got.bytes, IsEmpty());
}

TEST_F(MctpCallTest, SendAddressCarriesItsArgumentsAndReturnsTheResult)
{
    result = 42;
    startEndpoint();

    EXPECT_EQ(MctpSendAddress(endpoint, 0x01, 0x80, 0xFF, true, {0x05, 0x06}),
              42);

    Received got = seen();
    EXPECT_EQ(got.signature, "yyybay");
    EXPECT_THAT(got.scalars, ElementsAre(0x01, 0x80, 0xFF));
    EXPECT_EQ(got.flag, 1U);
    EXPECT_THAT(got.bytes, ElementsAre(0x05, 0x06));
}

TEST_F(MctpCallTest, SendBusOwnerCarriesItsArgumentsAndReturnsTheResult)
{
    // The endpoint's own negative answer is a result, not a failure.
    result = -3;
    startEndpoint();

    int r = 0;
    std::string out =
        console([&] { r = MctpSendBusOwner(endpoint, 0x09, false, {0xEE}); });

    EXPECT_EQ(r, -3);
    EXPECT_THAT(out, IsEmpty());
    Received got = seen();
    EXPECT_EQ(got.signature, "ybay");
    EXPECT_THAT(got.scalars, ElementsAre(0x09));
    EXPECT_EQ(got.flag, 0U);
    EXPECT_THAT(got.bytes, ElementsAre(0xEE));
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

TEST_F(MctpCallTest, CallsGiveEverythingBack)
{
    answer = {1, 2, 3};
    startEndpoint();
    Bytes response;
    MctpSendRecv(endpoint, 1, 2, {3}, response);
    size_t before = openDescriptors();

    console([&] {
        for (int i = 0; i < 20; ++i)
        {
            MctpSendRecv(endpoint, 1, 2, {3}, response);
            MctpSendAddress(endpoint, 1, 2, 3, true, {4});
            MctpSendBusOwner(endpoint, 1, true, {4});
            MctpSendRecv({"xyz.openbmc_project.MCTP.Nobody", endpoint.path,
                          endpoint.interface},
                         1, 2, {3}, response);
        }
    });

    EXPECT_EQ(openDescriptors(), before);
}

using MctpUnreachableTest = BusTest;

TEST_F(MctpUnreachableTest, NoEndpointOnTheBus)
{
    Bytes response = {0x01};
    int r = 0;
    std::string out =
        console([&] { r = MctpSendRecv(endpoint, 1, 2, {3}, response); });

    EXPECT_LT(r, 0);
    EXPECT_THAT(response, ElementsAre(0x01));
    EXPECT_THAT(out, HasSubstr("] sd_bus_call error code: " +
                               std::to_string(r) + "\n"));
}

TEST_F(MctpUnreachableTest, NoBusAtAll)
{
    // Restored by the fixture's bus at the end of the test.
    setenv("DBUS_SYSTEM_BUS_ADDRESS",
           ("unix:path=" + std::filesystem::temp_directory_path().string() +
            "/orvane-no-such-bus.sock")
               .c_str(),
           1);

    int r = 0;
    std::string out =
        console([&] { r = MctpSendAddress(endpoint, 1, 2, 3, false, {}); });

    EXPECT_LT(r, 0);
    EXPECT_THAT(out, HasSubstr("] sd_bus_open_system error code: " +
                               std::to_string(r) + "\n"));
}

TEST_F(MctpUnreachableTest, MalformedEndpointNames)
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
