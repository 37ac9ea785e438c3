// Faults of the eRoT and its link, as the client library reports them.

#include "erot_harness.hpp"

#include "erot/opcodes.hpp"

#include <algorithm>
#include <chrono>

#include <gtest/gtest.h>

namespace ubbsim::erot::test
{
namespace
{

using namespace std::chrono_literals;
using LinkFaults = ErotTest;

// A record list whose length disagrees with its count is only a warning;
// other malformed replies are protocol errors.
TEST_F(LinkFaults, MalformedReplies)
{
    bootWith({fault("shortReply", op::deviceId),
              fault("wrongLength", op::activeFlashConfigRead),
              fault("oversizedReply", op::getResetReason),
              fault("wrongLength", op::bprRead)});
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
    EXPECT_EQ(bootPartitions().size(), 10U);
}

TEST_F(LinkFaults, UnexpectedFormatVersions)
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
TEST_F(LinkFaults, GivenStatusForOneComponent)
{
    ErotFault refuse = fault("status", op::imageVerify, 0x81);
    refuse.component = "IFWI";
    bootWith({refuse});
    EXPECT_EQ(verify(0, "ifwi"), 0x81);
    EXPECT_EQ(verify(0, "vr"), 0);
}

TEST_F(LinkFaults, ReportedStateFaults)
{
    ErotFault failed = fault("secureBootFailed");
    failed.component = "SMC";
    failed.side = 0;
    ErotFault missing = fault("missingBpr", -1, 0, 1);
    missing.component = "SMC_FPGA";
    bootWith({failed, missing});
    auto info = componentInfo();
    for (size_t n = 0; n < info.size(); ++n)
    {
        bool smcA = info[n].componentId == 0x0200 && n % 2 == 0;
        EXPECT_EQ(info[n].secureBootStatus, smcA ? 0 : 1) << n;
    }
    auto hasFpgaRecord = [&] {
        auto records = bootPartitions();
        return std::any_of(records.begin(), records.end(), [](const auto& r) {
            return r.componentId == 0x0300;
        });
    };
    EXPECT_FALSE(hasFpgaRecord());
    EXPECT_TRUE(hasFpgaRecord()) << "missing for one read only";
}

// A dead link fails every attempt; once it is back the command works. The
// device acts on a request whose reply is lost: the retry acts again.
TEST_F(LinkFaults, DeadLinkAndLostReplies)
{
    ErotFault dead = fault("deadLink");
    dead.until = 2.0;
    bootWith({dead, fault("lostReplies", op::arbCommit, 0, 2)});
    bool enabled = false;
    EXPECT_EQ(::erot::ErotGetAutoARBCommit(&enabled, &status), -EIO);
    EXPECT_EQ(endpoint->exchanges().size(), 5U);
    now += 2s;
    EXPECT_EQ(::erot::ErotGetAutoARBCommit(&enabled, &status), 0);
    ASSERT_EQ(::erot::ErotARBCommit(&status), 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(traces("ARBC").size(), 3U);
    auto log = endpoint->exchanges();
    ASSERT_EQ(log.size(), 9U);
    EXPECT_EQ(log[6].delivery, Delivery::Kind::lost);
    EXPECT_EQ(log[6].fault, "lostReplies");
    EXPECT_EQ(log[8].delivery, Delivery::Kind::reply);
}

} // namespace
} // namespace ubbsim::erot::test
