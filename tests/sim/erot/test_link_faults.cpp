// Faults of the eRoT and its link, as the client library reports them.

#include "erot_harness.hpp"

#include "erot/opcodes.hpp"

#include <chrono>

#include <gtest/gtest.h>

namespace ubbsim::erot::test
{
namespace
{

using namespace std::chrono_literals;

ErotFault fault(std::string kind, int opcode = -1, int value = 0)
{
    ErotFault made;
    made.kind = std::move(kind);
    made.opcode = opcode;
    made.value = value;
    return made;
}

class LinkFaultsTest : public ErotTest
{
  protected:
    void bootWith(std::vector<ErotFault> faults)
    {
        ErotScenario scenario;
        scenario.faults = std::move(faults);
        boot(scenario);
    }
    uint8_t status = 0xEE;
};

TEST_F(LinkFaultsTest, MalformedRepliesAreProtocolErrors)
{
    bootWith({fault("shortReply", op::deviceId),
              fault("wrongLength", op::activeFlashConfigRead),
              fault("oversizedReply", op::getResetReason)});
    uint8_t id[49] = {};
    EXPECT_EQ(::erot::ErotGetDeviceId(id, sizeof(id), &status), -EPROTO);
    EXPECT_EQ(status, 0xEE) << "left unwritten";
    uint32_t active = 0;
    uint32_t pending = 0;
    bool update = false;
    EXPECT_EQ(
        ::erot::ErotActiveFlashConfigRead(&active, &pending, &update, &status),
        -EPROTO);
    uint32_t reason = 0;
    EXPECT_EQ(::erot::ErotGetResetReason(&reason, &status), -EIO);
    EXPECT_EQ(status, 0xFF);
}

// A record list whose length disagrees with its count is only a warning
// to the client.
TEST_F(LinkFaultsTest, BprOfTheWrongLengthStillGivesItsRecords)
{
    bootWith({fault("wrongLength", op::bprRead)});
    uint32_t count = 0;
    ::erot::BootPartitionRecord* raw = nullptr;
    ASSERT_EQ(::erot::ErotBPRRead(&count, &raw, &status), 0);
    ::erot::Owned<::erot::BootPartitionRecord> records(raw);
    EXPECT_EQ(count, 10U);
}

TEST_F(LinkFaultsTest, UnexpectedFormatVersions)
{
    bootWith({fault("formatVersion", op::componentInfoV4, 3),
              fault("formatVersion", op::bprRead, 2),
              fault("formatVersion", op::traceLog, 1)});
    uint32_t count = 0;
    ::erot::ComponentInfo* info = nullptr;
    EXPECT_EQ(::erot::ErotGetComponentInfoV4(&count, &info, &status), -EPROTO);
    ::erot::BootPartitionRecord* records = nullptr;
    EXPECT_EQ(::erot::ErotBPRRead(&count, &records, &status), -EPROTONOSUPPORT);
    ::erot::TraceLogEntry* entries = nullptr;
    bool overflowed = false;
    EXPECT_EQ(::erot::ErotGetTraceLog(&count, &entries, &overflowed, &status),
              -EPROTO);
}

// A refusal can be meant for one component's verification only.
TEST_F(LinkFaultsTest, GivenStatusForOneComponent)
{
    ErotFault refuse = fault("status", op::imageVerify, 0x81);
    refuse.component = "IFWI";
    bootWith({refuse});
    EXPECT_EQ(verify(0, "ifwi"), 0x81);
    EXPECT_EQ(verify(0, "vr"), 0);
}

TEST_F(LinkFaultsTest, ReportedStateFaults)
{
    ErotFault failed = fault("secureBootFailed");
    failed.component = "SMC";
    failed.side = 0;
    ErotFault missing = fault("missingBpr");
    missing.component = "SMC_FPGA";
    missing.count = 1;
    bootWith({failed, missing});

    uint32_t count = 0;
    ::erot::ComponentInfo* raw = nullptr;
    ASSERT_EQ(::erot::ErotGetComponentInfoV4(&count, &raw, &status), 0);
    ::erot::Owned<::erot::ComponentInfo> info(raw);
    for (uint32_t n = 0; n < count; ++n)
    {
        bool smcA = raw[n].componentId == 0x0200 && n % 2 == 0;
        EXPECT_EQ(raw[n].secureBootStatus, smcA ? 0 : 1) << n;
    }

    auto hasFpgaRecord = [&] {
        ::erot::BootPartitionRecord* records = nullptr;
        EXPECT_EQ(::erot::ErotBPRRead(&count, &records, &status), 0);
        ::erot::Owned<::erot::BootPartitionRecord> owned(records);
        return std::any_of(records, records + count, [](const auto& record) {
            return record.componentId == 0x0300;
        });
    };
    EXPECT_FALSE(hasFpgaRecord());
    EXPECT_TRUE(hasFpgaRecord()) << "missing for one read only";
}

// A dead link fails every attempt; once it is back the command works.
TEST_F(LinkFaultsTest, DeadLinkForAWhile)
{
    ErotFault dead = fault("deadLink");
    dead.until = 2.0;
    bootWith({dead});
    bool enabled = false;
    EXPECT_EQ(::erot::ErotGetAutoARBCommit(&enabled, &status), -EIO);
    EXPECT_EQ(endpoint->exchanges().size(), 5U);
    now += 2s;
    EXPECT_EQ(::erot::ErotGetAutoARBCommit(&enabled, &status), 0);
}

// The device acts on a request whose reply is lost: the retry acts again.
TEST_F(LinkFaultsTest, LostRepliesAreRetriedAndTheDeviceActsEachTime)
{
    ErotFault lost = fault("lostReplies", op::arbCommit);
    lost.count = 2;
    bootWith({lost});
    ASSERT_EQ(::erot::ErotARBCommit(&status), 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(traces("ARBC").size(), 3U);
    auto log = endpoint->exchanges();
    ASSERT_EQ(log.size(), 3U);
    EXPECT_EQ(log[0].delivery, Delivery::Kind::lost);
    EXPECT_EQ(log[0].fault, "lostReplies");
    EXPECT_EQ(log[2].delivery, Delivery::Kind::reply);
}

} // namespace
} // namespace ubbsim::erot::test
