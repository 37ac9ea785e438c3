#include "erot/scripted_device.hpp"
#include "secure-boot/erot_boot_fixture.hpp"
#include "fakes/console_capture.hpp"
#include "fakes/fake_platform.hpp"
#include "secure-boot/boot_context.hpp"
#include "secure-boot/erot_calls.hpp"
#include "secure-boot/trace_log.hpp"

#include <semaphore.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using erot::test::Bytes;
using erot::test::join;
using erot::test::page;
using erot::test::response;
using ::testing::Contains;
using ::testing::ElementsAre;
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
        EnterBootCriticalSection(&semaphore);
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
    device.reply(page(0x0F, 0x02, 0, 4));
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
    std::vector<std::chrono::nanoseconds> sleeps(4 + 5,
                                                 std::chrono::seconds(1));
    sleeps.push_back(std::chrono::seconds(10)); // the halt's
    EXPECT_EQ(clock.sleeps(), sleeps);
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

constexpr uint8_t lastPage = 0x02;

Bytes entry(uint64_t timestamp, const char* tag, uint32_t data1 = 0,
            uint32_t data2 = 0, uint8_t severity = 5)
{
    Bytes bytes(21);
    std::memcpy(bytes.data(), &timestamp, 8);
    std::memcpy(bytes.data() + 8, tag, 4);
    std::memcpy(bytes.data() + 12, &data1, 4);
    std::memcpy(bytes.data() + 16, &data2, 4);
    bytes[20] = severity;
    return bytes;
}

class TraceLogTest : public ErotBootTest
{
  protected:
    TraceLogTest()
    {
        ResetTraceLogCursor();
    }

    // One read of `log` with the given health byte; returns the console.
    std::string print(const Bytes& log, uint8_t health, uint8_t flags = 0)
    {
        device.reply(page(0x31, lastPage | flags, 0, 2, log));
        device.reply(response(0x32, 0, {health, 0}));
        return console([&] { PrintDebugTraceLog(context); });
    }

    std::vector<std::string> eventIds() const
    {
        std::vector<std::string> ids;
        for (const std::string& event : events())
        {
            ids.push_back(event.substr(0, event.find('|')));
        }
        return ids;
    }
};

TEST_F(TraceLogTest, PrintsEachEntryOnceAcrossReads)
{
    const Bytes log =
        join(entry(100, "INIT", 0x1, 0xABCDEF12), entry(200, "BOOT"));
    std::string out = print(log, 0);
    EXPECT_THAT(out, HasSubstr("Got 2 logs:"));
    EXPECT_THAT(out, HasSubstr("         100 INIT 0x00000001 0xabcdef12 5"));
    EXPECT_THAT(out, HasSubstr("         200 BOOT"));

    // The same log again, plus an entry at the same time with another tag
    // and one older than the last seen.
    out = print(join(log, entry(200, "WAKE"), entry(150, "LATE")), 0);
    EXPECT_THAT(out, Not(HasSubstr("INIT")));
    EXPECT_THAT(out, Not(HasSubstr(" BOOT ")));
    EXPECT_THAT(out, HasSubstr("         200 WAKE"));
    EXPECT_THAT(out, Not(HasSubstr("LATE")));
    EXPECT_TRUE(events().empty());
}

TEST_F(TraceLogTest, ErrorsRaiseEventsByHealth)
{
    const Bytes log =
        join(entry(1, "BPup", 0x10, 0x20, 3), entry(2, "WARN", 0x1, 0x2, 4));
    print(log, 0);
    EXPECT_THAT(eventIds(),
                ElementsAre("AutomaticRecoveryTriggered",
                            "ResourceEvent.1.2.1.ResourceEROTFatalErrorsOEM"));
    EXPECT_THAT(events()[1], HasSubstr("|BPup,0x10,0x20|EROT fatal error "
                                       "occured"));

    // Health reporting non-fatal errors, and an overflowed log.
    fake.zellib.clear();
    ResetTraceLogCursor();
    EXPECT_THAT(print(log, 0x02, 0x04), HasSubstr("Trace log overflowed!"));
    EXPECT_THAT(
        eventIds(),
        ElementsAre("AutomaticRecoveryTriggered",
                    "ResourceEvent.1.2.1.ResourceEROTFatalErrorsOEM",
                    "ResourceEvent.1.2.1.ResourceEROTNonFatalErrorsOEM"));
}

TEST_F(TraceLogTest, FailedReadsOnlyReport)
{
    device.fail(-EIO);
    // A failed health poll stops before any entry is printed or remembered.
    device.reply(page(0x31, lastPage, 0, 2, entry(5, "INIT", 0, 0, 3)));
    device.fail(-ETIMEDOUT);
    device.reply(response(0x31, 0x09));
    const std::string out = console([&] {
        for (int i = 0; i < 3; ++i)
        {
            PrintDebugTraceLog(context);
        }
    });
    EXPECT_THAT(out, HasSubstr("Status Error 0x09"));
    EXPECT_THAT(out, Not(HasSubstr("INIT")));
    EXPECT_THAT(events(),
                ElementsAre(HasSubstr("ErotGetTraceLog; Return code: -5|Fail "
                                      "to run ErotGetTraceLog. Error Code: -5"),
                            HasSubstr("ErotGetTraceLog; Return code: -110|Fail "
                                      "to run ErotHealthStatusPoll. Error "
                                      "Code: -110")));
    EXPECT_THAT(print(entry(5, "INIT"), 0), HasSubstr("INIT"));
}

} // namespace
} // namespace orvane::test
