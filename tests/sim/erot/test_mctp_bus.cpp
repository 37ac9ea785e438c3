// The MCTP endpoint of the virtual board on a private bus, reached by erotctl
// through the client library and by calls that are wrongly addressed.

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

// A call to another address or endpoint, with another time-out than the
// commands', or with a frame that isn't the vendor's, gets no answer: the
// call fails and the device never sees the request.
TEST_F(MctpBus, WronglyAddressedOrFramedCallsGetNoAnswer)
{
    serve({});
    struct Call
    {
        uint8_t address, eid;
        uint16_t timeoutMs;
        size_t at; // the frame byte set to `value`; 8 cuts the frame short
        uint8_t value;
        std::string rejected;
    };
    const std::vector<Call> calls = {
        {100, 0x94, 6000, 7, 0x32, ""},
        {99, 0x94, 6000, 7, 0x32, "address 99"},
        {100, 0x95, 6000, 7, 0x32, "eid 0x95"},
        {100, 0x94, 25000, 7, 0x32, "timeout 25000"},
        {100, 0x94, 6000, 0, 0x7E, "frame byte 0 0x7e"},
        {100, 0x94, 6000, 3, 0x2C, "frame byte 3 0x2c"},
        {100, 0x94, 6000, 6, 0x01, "frame byte 6 0x01"},
        {100, 0x94, 6000, 8, 0, "frame of 7 bytes"},
    };
    auto connection = sdbus::createSystemBusConnection();
    auto proxy =
        sdbus::createProxy(*connection, "xyz.openbmc_project.MCTP.SMBus15",
                           "/xyz/openbmc_project/mctp");
    for (const Call& call : calls)
    {
        std::vector<uint8_t> frame = {0x7F, 0, 0, 0x5B, 0x2C, 0, 0, 0x32};
        call.at < 8 ? void(frame[call.at] = call.value) : frame.pop_back();
        bool answered = true;
        try
        {
            proxy->callMethod("MctpSendRecv")
                .onInterface("xyz.openbmc_project.MCTP.Endpoint")
                .withArguments(call.address, call.eid, call.timeoutMs, frame)
                .storeResultsTo(frame);
        }
        catch (const sdbus::Error&)
        {
            answered = false;
        }
        EXPECT_EQ(answered, call.rejected.empty()) << call.rejected;
        EXPECT_EQ(endpoint->exchanges().back().fault, call.rejected);
    }
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
