// The MCTP endpoint of the virtual board on a private bus, reached by the
// client library's own transport and by erotctl.

#include "erot_harness.hpp"
#include "erotctl_commands.hpp"

#include "fakes/bus_fixture.hpp"
#include "fakes/console_capture.hpp"
#include "neighbours/neighbours.hpp"

#include <sdbus-c++/sdbus-c++.h>

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ubbsim::erot::test
{
namespace
{

using orvane::test::console;
using ::testing::HasSubstr;

class MctpBus : public ErotTest
{
  protected:
    void serve(std::vector<ErotFault> faults)
    {
        bootWith(std::move(faults));
        ::erot::ErotSetTransport(nullptr); // the bus transport
        neighbours = std::make_unique<Neighbours>(
            Scenario{},
            [this](uint8_t address, uint8_t eid, uint16_t timeoutMs,
                   const std::vector<uint8_t>& request)
                -> std::optional<std::vector<uint8_t>> {
                Delivery delivery =
                    endpoint->exchange({address, eid, timeoutMs}, request);
                if (delivery.kind == Delivery::Kind::linkDown ||
                    delivery.kind == Delivery::Kind::rejected)
                {
                    return std::nullopt;
                }
                return delivery.frame;
            });
        neighbours->start();
    }
    void TearDown() override
    {
        neighbours.reset();
    }

    // erotctl as run from a shell; the library's retry lines are not part
    // of its report.
    erotctl::Outcome quietly(const std::vector<std::string>& words)
    {
        erotctl::Outcome outcome;
        console([&] { outcome = erotctl::run(words); });
        return outcome;
    }

    orvane::test::PrivateBus bus;
    std::unique_ptr<Neighbours> neighbours;
};

TEST_F(MctpBus, DeadLinkEndsInAnIoErrorAndAnErotctlLinkFailure)
{
    serve({fault("deadLink")});
    std::string printed =
        console([&] { EXPECT_EQ(::erot::ErotARBCommit(&status), -EIO); });
    EXPECT_EQ(status, 0xFF);
    EXPECT_EQ(neighbours->callCount("MctpSendRecv"), 5U);
    EXPECT_THAT(printed, HasSubstr("sd_bus_call error: -5"));
    erotctl::Outcome outcome = quietly({"health"});
    EXPECT_EQ(outcome.exitCode, 3);
    EXPECT_FALSE(outcome.err.empty());
}

// A call to another address or endpoint, with another time-out than the
// commands', or with a frame that isn't the vendor's, gets no answer: the
// call fails and the device never sees the request.
TEST_F(MctpBus, WronglyAddressedOrFramedCallsGetNoAnswer)
{
    serve({});
    const std::vector<uint8_t> frame = {0x7F, 0, 0, 0x5B, 0x2C, 0, 0, 0x32};
    auto changed = [&](size_t at, uint8_t value) {
        std::vector<uint8_t> copy = frame;
        copy[at] = value;
        return copy;
    };
    struct Call
    {
        uint8_t address;
        uint8_t eid;
        uint16_t timeoutMs;
        std::vector<uint8_t> frame;
        std::string rejected; // empty: answered
    };
    const std::vector<Call> calls = {
        {100, 0x94, 6000, frame, ""},
        {99, 0x94, 6000, frame, "address 99"},
        {100, 0x95, 6000, frame, "eid 0x95"},
        {100, 0x94, 25000, frame, "timeout 25000"},
        {100, 0x94, 6000, changed(0, 0x7E), "frame byte 0 0x7e"},
        {100, 0x94, 6000, changed(3, 0x2C), "frame byte 3 0x2c"},
        {100, 0x94, 6000, changed(4, 0x5B), "frame byte 4 0x5b"},
        {100, 0x94, 6000, changed(6, 1), "frame byte 6 0x01"},
        {100, 0x94, 6000, {frame.begin(), frame.end() - 1}, "frame of 7 bytes"},
    };
    auto connection = sdbus::createSystemBusConnection();
    auto proxy =
        sdbus::createProxy(*connection, "xyz.openbmc_project.MCTP.SMBus15",
                           "/xyz/openbmc_project/mctp");
    for (const Call& call : calls)
    {
        std::vector<uint8_t> reply;
        bool answered = true;
        try
        {
            proxy->callMethod("MctpSendRecv")
                .onInterface("xyz.openbmc_project.MCTP.Endpoint")
                .withArguments(call.address, call.eid, call.timeoutMs,
                               call.frame)
                .storeResultsTo(reply);
        }
        catch (const sdbus::Error&)
        {
            answered = false;
        }
        ExchangeRecord last = endpoint->exchanges().back();
        EXPECT_EQ(answered, call.rejected.empty()) << call.rejected;
        EXPECT_EQ(last.fault, call.rejected);
        EXPECT_EQ(last.delivery == Delivery::Kind::rejected, !answered);
    }
    // The client's own transport, handed a frame of another vendor, ends
    // as a link that never answers.
    std::vector<uint8_t> foreign = changed(4, 0x2D);
    std::vector<uint8_t> response(64);
    size_t received = 0;
    console([&] {
        EXPECT_EQ(::erot::ErotTransportSendRecv(
                      foreign.data(), foreign.size(), response.data(),
                      response.size(), ::erot::commandTimeoutMs, &received),
                  -EIO);
    });
    EXPECT_EQ(endpoint->exchanges().back().fault, "frame byte 4 0x2d");
}

// Every read is answered and decoded, as text and as JSON.
TEST_F(MctpBus, ErotctlReadsEveryCommandFromTheBoard)
{
    serve({});
    const std::vector<std::vector<std::string>> reads = {
        {"active-flash"},
        {"bpr"},
        {"component-info", "--version", "2"},
        {"component-info", "--version", "3"},
        {"component-info", "--version", "4"},
        {"bkc-manifest"},
        {"security-settings"},
        {"persist"},
        {"auto-arb"},
        {"trace-log"},
        {"trace-log", "--basic"},
        {"health"},
        {"reset-reason"},
        {"device-id"},
        {"identity-hex"},
        {"key-revoke-bits"},
        {"svn-revoke-bits"},
        {"cert-chain"},
        {"token-read"},
        {"record-get"}};
    for (auto words : reads)
    {
        std::string name = words[0];
        erotctl::Outcome outcome = quietly(words);
        EXPECT_EQ(outcome.exitCode, 0) << name << ": " << outcome.err;
        EXPECT_FALSE(outcome.out.empty()) << name;
        words.push_back("--json");
        outcome = quietly(words);
        EXPECT_EQ(outcome.exitCode, 0) << name << ": " << outcome.err;
        EXPECT_TRUE(nlohmann::json::accept(outcome.out))
            << name << ": " << outcome.out;
    }
    // Every entry of the board's table arrives, across pages.
    auto info = nlohmann::json::parse(
        quietly({"component-info", "--version", "4", "--json"}).out);
    EXPECT_EQ(info["count"], 20);
    EXPECT_EQ(info["components"].size(), 20U);
}

} // namespace
} // namespace ubbsim::erot::test
