// The MCTP endpoint of the virtual board on a private bus, reached by the
// client library's own transport and by erotctl.

#include "erot_harness.hpp"
#include "erotctl_commands.hpp"

#include "fakes/bus_fixture.hpp"
#include "fakes/console_capture.hpp"
#include "neighbours/neighbours.hpp"

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
            [this](const std::vector<uint8_t>& request)
                -> std::optional<std::vector<uint8_t>> {
                Delivery delivery = endpoint->exchange(request);
                if (delivery.kind == Delivery::Kind::linkDown)
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
