// The bus transport against an MCTP endpoint on a private system bus: the
// call's arguments, the five attempts, and which failures are final.
#include "scripted_device.hpp"

#include "fakes/bus_fixture.hpp"
#include "fakes/console_capture.hpp"

#include <systemd/sd-bus.h>

#include <cerrno>
#include <cstdlib>
#include <deque>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace erot::test
{
namespace
{

using orvane::test::occurrences;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

class Transport : public ::testing::Test
{
  protected:
    // `plan` holds errnos or byte replies; once it is used up, EBUSY.
    void startEndpoint(std::deque<std::pair<int, Bytes>> answers)
    {
        plan = std::move(answers);
        peer.addMethod("/xyz/openbmc_project/mctp",
                       "xyz.openbmc_project.MCTP.Endpoint", "MctpSendRecv",
                       "yyqay", "ay",
                       [this](sd_bus_message* call, sd_bus_message* reply) {
                           return answer(call, reply);
                       });
        peer.start();
    }

    // Runs on the peer's thread under its lock.
    int answer(sd_bus_message* call, sd_bus_message* reply)
    {
        const void* data = nullptr;
        size_t size = 0;
        int r = sd_bus_message_read(call, "yyq", &address, &eid, &timeout);
        if (r < 0 ||
            (r = sd_bus_message_read_array(call, 'y', &data, &size)) < 0)
        {
            return r;
        }
        const auto* bytes = static_cast<const uint8_t*>(data);
        received.assign(bytes, bytes + size);
        std::pair<int, Bytes> next = {EBUSY, {}};
        if (!plan.empty())
        {
            next = plan.front();
            plan.pop_front();
        }
        return next.first != 0
                   ? -next.first
                   : sd_bus_message_append_array(reply, 'y', next.second.data(),
                                                 next.second.size());
    }

    int send(const Bytes& frame, uint32_t timeoutMs = 6000)
    {
        int r = 0;
        text = printed([&] {
            r = ErotTransportSendRecv(frame.data(), frame.size(),
                                      responseFrame.data(),
                                      responseFrame.size(), timeoutMs, &length);
        });
        return r;
    }

    orvane::test::PrivateBus bus;
    orvane::test::BusResponder peer{"xyz.openbmc_project.MCTP.SMBus15"};
    std::deque<std::pair<int, Bytes>> plan;
    uint8_t address = 0;
    uint8_t eid = 0;
    uint16_t timeout = 0;
    Bytes received;
    Bytes responseFrame = Bytes(12, 0);
    size_t length = 0;
    Printed text;
};

TEST_F(Transport, CarriesTheFrameToTheErotAndCopiesTheReply)
{
    startEndpoint({{0, {9, 8, 7, 6, 5, 4, 3, 2, 1, 0}}});
    EXPECT_EQ(send({0x7F, 0x01, 0x02}, 30000), 0);
    EXPECT_EQ(length, 10U);
    EXPECT_EQ(Bytes(responseFrame.begin(), responseFrame.begin() + 10),
              Bytes({9, 8, 7, 6, 5, 4, 3, 2, 1, 0}));
    EXPECT_EQ(text.out, "");
    auto lock = peer.hold();
    EXPECT_EQ(address, 100);
    EXPECT_EQ(eid, 0x94);
    EXPECT_EQ(timeout, 25000);
    EXPECT_THAT(received, ElementsAre(0x7F, 0x01, 0x02));
}

TEST_F(Transport, FiveAttemptsThenTheLastError)
{
    startEndpoint({});
    EXPECT_EQ(send({1}), -EBUSY);
    EXPECT_EQ(peer.calls("MctpSendRecv"), 5);
    EXPECT_EQ(occurrences(text.out,
                          "sd_bus_call error: -16 (Device or resource busy)\n"),
              5U);
    EXPECT_THAT(text.out, HasSubstr("Retry eRot API (1/4)\n"));
    EXPECT_THAT(text.out, HasSubstr("Retry eRot API (4/4)\n"));
    EXPECT_EQ(occurrences(text.out, "Retry eRot API"), 4U);
}

TEST_F(Transport, EmptyRepliesAreRetriedAndALaterAttemptCanSucceed)
{
    startEndpoint({{0, {}}, {EIO, {}}, {0, {0xAB}}});
    EXPECT_EQ(send({1}), 0);
    EXPECT_EQ(peer.calls("MctpSendRecv"), 3);
    EXPECT_EQ(length, 1U);
    EXPECT_EQ(responseFrame[0], 0xAB);
    EXPECT_EQ(occurrences(text.out, "Response length is 0"), 1U);
    EXPECT_EQ(occurrences(text.out, "Retry eRot API"), 2U);
}

TEST_F(Transport, AnOversizedReplyIsFinal)
{
    startEndpoint({{0, Bytes(20, 0x11)}});
    EXPECT_EQ(send({1}), -EIO);
    EXPECT_EQ(peer.calls("MctpSendRecv"), 1);
    EXPECT_EQ(text.out, "RX buffer is not enough (12 < 20)\n");
    EXPECT_EQ(responseFrame[0], 0);
}

TEST(TransportWithoutBus, NoSystemBusIsFinal)
{
    constexpr const char* variable = "DBUS_SYSTEM_BUS_ADDRESS";
    std::optional<std::string> saved;
    if (const char* previous = std::getenv(variable))
    {
        saved = previous;
    }
    setenv(variable, "unix:path=/nonexistent/orvane.sock", 1);
    Bytes reply(9);
    size_t length = 0;
    uint8_t byte = 1;
    int r = 0;
    Printed text = printed([&] {
        r = ErotTransportSendRecv(&byte, 1, reply.data(), reply.size(), 100,
                                  &length);
    });
    saved ? setenv(variable, saved->c_str(), 1) : unsetenv(variable);
    EXPECT_LT(r, 0);
    EXPECT_THAT(text.out, HasSubstr("sd_bus_default_system error: "));
    EXPECT_THAT(text.out, Not(HasSubstr("Retry")));
}

} // namespace
} // namespace erot::test
