// The MCTP endpoint of the virtual board on a private bus, reached by the
// client library's own transport.

#include "erot_harness.hpp"

#include "erot/opcodes.hpp"
#include "fakes/bus_fixture.hpp"
#include "neighbours/neighbours.hpp"

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

} // namespace
} // namespace ubbsim::erot::test
