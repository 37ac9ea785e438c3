// The MCTP endpoint of the virtual board on a private bus, reached by the
// client library's own transport.

#include "erot_harness.hpp"
#include "erotctl_commands.hpp"

#include "erot/opcodes.hpp"
#include "fakes/bus_fixture.hpp"
#include "neighbours/neighbours.hpp"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

namespace ubbsim::erot::test
{
namespace
{

class MctpBus : public ErotTest
{
  protected:
    void serve(std::vector<ErotFault> faults)
    {
        ErotScenario scenario;
        scenario.faults = std::move(faults);
        boot(scenario);
        // The bus transport, not the in-process one.
        ::erot::ErotSetTransport(nullptr);
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
        testing::internal::CaptureStdout();
        erotctl::Outcome outcome = erotctl::run(words);
        testing::internal::GetCapturedStdout();
        return outcome;
    }

    orvane::test::PrivateBus bus;
    std::unique_ptr<Neighbours> neighbours;
    uint8_t status = 0xEE;
};

TEST_F(MctpBus, LostRepliesCostAttemptsOfTheTransport)
{
    ErotFault lost;
    lost.kind = "lostReplies";
    lost.count = 3;
    serve({lost});
    uint32_t active = 9;
    uint32_t pending = 9;
    bool update = true;
    testing::internal::CaptureStdout();
    int result =
        ::erot::ErotActiveFlashConfigRead(&active, &pending, &update, &status);
    std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(active, 0U);
    EXPECT_EQ(neighbours->callCount("MctpSendRecv"), 4U);
    EXPECT_NE(printed.find("Retry eRot API (3/4)"), std::string::npos);
}

TEST_F(MctpBus, DeadLinkEndsInAnIoErrorAfterFiveAttempts)
{
    ErotFault dead;
    dead.kind = "deadLink";
    serve({dead});
    testing::internal::CaptureStdout();
    int result = ::erot::ErotARBCommit(&status);
    std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(result, -EIO);
    EXPECT_EQ(status, 0xFF);
    EXPECT_EQ(neighbours->callCount("MctpSendRecv"), 5U);
    EXPECT_NE(printed.find("sd_bus_call error: -5"), std::string::npos);
}

// erotctl against the virtual board's endpoint: every read is answered and
// decoded, and a write guarded by --write changes what the next read sees.
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
        {"record-get"},
    };
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

TEST_F(MctpBus, ErotctlWritesOnlyWithTheFlag)
{
    serve({});
    EXPECT_EQ(quietly({"select-flash", "B"}).exitCode, 2);
    EXPECT_EQ(quietly({"--write", "select-flash", "B"}).exitCode, 0);
    std::string flash = quietly({"active-flash"}).out;
    EXPECT_NE(flash.find("pending side B"), std::string::npos) << flash;
}

TEST_F(MctpBus, ErotctlReportsADeadLinkAsALinkFailure)
{
    ErotFault dead;
    dead.kind = "deadLink";
    serve({dead});
    erotctl::Outcome outcome = quietly({"health"});
    EXPECT_EQ(outcome.exitCode, 3);
    EXPECT_FALSE(outcome.err.empty());
}

} // namespace
} // namespace ubbsim::erot::test
