#include "erot_boot_fixture.hpp"

#include "secure-boot/erot_calls.hpp"

#include <cerrno>
#include <functional>

#include <gmock/gmock.h>

namespace orvane::test
{
namespace
{

using erot::test::Bytes;
using erot::test::response;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr uint8_t refusal = 0x42;
const std::string haltEvent =
    "BootFailure|RoT|System halt and enable FW recovery mode.";

// How one call grades a failed link and a refusal. An empty refusal word
// means the refusal is handed back without a report.
struct Grading
{
    const char* api;
    uint8_t opcode;
    std::function<int(BootContext&)> call;
    const char* linkWord;
    const char* refusalWord;
    bool haltsOnLink;
};

const uint8_t hash[48] = {};
const uint8_t ahdr[ahdrSize] = {};
uint8_t persist[16] = {};
// The calls outlive the table: their outputs must too.
uint32_t u;
bool b;
uint16_t length;

template <typename Entry, typename Read>
int freeing(Read read)
{
    uint32_t count = 0;
    Entry* entries = nullptr;
    int r = read(&count, &entries);
    std::free(entries);
    return r;
}

std::vector<Grading> gradings()
{
    using C = BootContext;
    // clang-format off
    return {
        {"ErotActiveFlashConfigRead", 0x01, [](C& c) { return ErotActiveFlashConfigRead(c, &u, &u, &b); }, "Return Code", "Return Code", true},
        {"ErotImageVerify", 0x02, [](C& c) { return ErotImageVerify(c, 0x0400, hash, ahdr); }, "Error Code", "Error Code", true},
        {"ErotSignalBootSuccess", 0x04, [](C& c) { return ErotSignalBootSuccess(c, 0); }, "Error Code", "Error Code", true},
        {"ErotBPRRead", 0x05, [](C& c) { return freeing<erot::BootPartitionRecord>([&](auto* n, auto** e) { return ErotBPRRead(c, n, e); }); }, "Error Code", "", true},
        {"ErotSelectActiveFlash", 0x10, [](C& c) { return ErotSelectActiveFlash(c, 1, 0); }, "Error Code", "", true},
        {"ErotGetComponentInfo", 0x0F, [](C& c) { return freeing<erot::ComponentInfo>([&](auto* n, auto** e) { return ErotGetComponentInfo(c, n, e); }); }, "Return Code", "Error Code", true},
        {"ErotSystemReset", 0x11, [](C& c) { return ErotSystemReset(c, 1); }, "Error Code", "", true},
        {"ErotSMCPersistGet", 0x12, [](C& c) { return ErotSMCPersistGet(c, persist, sizeof(persist), &length); }, "Error Code", "", true},
        {"ErotSMCPersistSet", 0x13, [](C& c) { return ErotSMCPersistSet(c, persist, sizeof(persist)); }, "Error Code", "", true},
        {"ErotARBCommit", 0x0D, [](C& c) { return ErotARBCommit(c); }, "Return Code", "Error Code", false},
        {"ErotGetAutoARBCommit", 0x15, [](C& c) { return ErotGetAutoARBCommit(c, &b); }, "Return Code", "Error Code", false},
        {"ErotSetAutoARBCommit", 0x16, [](C& c) { return ErotSetAutoARBCommit(c, true); }, "Return Code", "Error Code", false},
    };
    // clang-format on
}

std::string report(const Grading& g, const std::string& word, int value)
{
    const std::string n = std::to_string(value);
    return "ResourceEvent.1.2.1.ResourceSelfTestFailed|[Secure-Boot] Fail to "
           "access eRoT API - " +
           std::string(g.api) + "; Return code: " + n + "|Fail to run " +
           g.api + ". " + word + ": " + n;
}

using ErotCallTest = ErotBootTest;

// A dead link halts every boot call but the anti-rollback ones, which only
// report; a refusal comes back as the status, and only some calls report
// it. Each keeps its own word for the number.
TEST_F(ErotCallTest, LinkFailureAndRefusalAreGradedPerCall)
{
    for (const Grading& g : gradings())
    {
        SCOPED_TRACE(g.api);
        fake.zellib.clear();
        device.fail(-EIO);
        console([&] {
            if (g.haltsOnLink)
            {
                EXPECT_THROW(g.call(context), Halted);
            }
            else
            {
                EXPECT_EQ(g.call(context), -EIO);
            }
        });
        EXPECT_EQ(sem_trywait(&semaphore) == 0, g.haltsOnLink);
        EXPECT_EQ(::testing::Value(events(), Contains(haltEvent)),
                  g.haltsOnLink);
        EXPECT_THAT(events(), Contains(report(g, g.linkWord, -EIO)));
        fake.zellib.clear();
        device.reply(response(g.opcode, refusal));
        console([&] { EXPECT_EQ(g.call(context), refusal); });
        if (std::string(g.refusalWord).empty())
        {
            EXPECT_TRUE(events().empty());
        }
        else
        {
            EXPECT_EQ(events(), std::vector<std::string>{
                                    report(g, g.refusalWord, refusal)});
        }
    }
}

TEST_F(ErotCallTest, ComponentInfoRetriesProtocolErrorsFiveReadsAtMost)
{
    // A reply shorter than a status frame is a protocol error.
    const Bytes truncated = {0x7F, 0, 0};
    for (int i = 0; i < 4; ++i)
    {
        device.reply(truncated);
    }
    device.reply(erot::test::page(0x0F, 0x02, 0, 4));
    uint32_t count = 7;
    erot::ComponentInfo* entries = nullptr;
    std::string out = console(
        [&] { EXPECT_EQ(ErotGetComponentInfo(context, &count, &entries), 0); });
    std::free(entries);
    EXPECT_EQ(count, 0U);
    EXPECT_THAT(out, HasSubstr("ErotGetComponentInfo failed with -EPROTO. "
                               "ErrorCode: 0Retry: 3"));
    EXPECT_EQ(clock.sleeps(), std::vector<std::chrono::nanoseconds>(
                                  4, std::chrono::seconds(1)));
    fake.zellib.clear();
    for (int i = 0; i < 5; ++i)
    {
        device.reply(truncated);
    }
    out = console([&] {
        EXPECT_THROW(ErotGetComponentInfo(context, &count, &entries), Halted);
    });
    EXPECT_EQ(device.sent.size(), 10U);
    // The fifth error is logged and paused on like the four before it.
    EXPECT_THAT(out, HasSubstr("ErrorCode: 0Retry: 4"));
    const auto sleeps = clock.sleeps();
    ASSERT_GE(sleeps.size(), 4U + 5U);
    EXPECT_EQ(std::vector(sleeps.begin(), sleeps.begin() + 4 + 5),
              std::vector<std::chrono::nanoseconds>(4 + 5,
                                                    std::chrono::seconds(1)));
    EXPECT_EQ(sleeps[4 + 5], std::chrono::seconds(10)) << "the halt's sleep";
    EXPECT_THAT(events(), Contains(HasSubstr(
                              "Fail to run ErotGetComponentInfo. Return Code: "
                              "-71")));
}

TEST_F(ErotCallTest, SystemResetWaitsTenSecondsBeforeSending)
{
    device.reply(response(0x11, 0));
    EXPECT_EQ(ErotSystemReset(context, 1), 0);
    EXPECT_EQ(clock.sleeps(),
              std::vector<std::chrono::nanoseconds>{std::chrono::seconds(10)});
    ASSERT_EQ(device.sent.size(), 1U);
    EXPECT_EQ(device.sent[0].request[12], 1);
}

TEST_F(ErotCallTest, ResetReasonNeverHalts)
{
    device.fail(-EIO);
    device.reply(response(0x24, 0x07));
    device.reply(response(0x24, 0));
    std::string out = console([&] {
        EXPECT_EQ(ErotSetResetReason(context, 3), 255);
        EXPECT_EQ(ErotSetResetReason(context, 3), 7);
        EXPECT_EQ(ErotSetResetReason(context, 3), 0);
    });
    EXPECT_THAT(out, HasSubstr("MCTP Error -5"));
    EXPECT_THAT(out, HasSubstr("Status Error 0x07"));
    EXPECT_THAT(out, HasSubstr("Setting reason 3 successful."));
    EXPECT_TRUE(events().empty());
}

} // namespace
} // namespace orvane::test
