#include "erot_boot_fixture.hpp"

#include "secure-boot/trace_log.hpp"

#include <cstring>

#include <gmock/gmock.h>

namespace orvane::test
{
namespace
{

using erot::test::Bytes;
using erot::test::page;
using erot::test::response;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

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

Bytes join(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes& part : parts)
    {
        all = erot::test::join(all, part);
    }
    return all;
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
        join({entry(100, "INIT", 0x1, 0xABCDEF12), entry(200, "BOOT")});
    std::string out = print(log, 0);
    EXPECT_THAT(out, HasSubstr("Got 2 logs:"));
    EXPECT_THAT(out, HasSubstr("         100 INIT 0x00000001 0xabcdef12 5"));
    EXPECT_THAT(out, HasSubstr("         200 BOOT"));

    // The same log again, plus an entry at the same time with another tag
    // and one older than the last seen.
    out = print(join({log, entry(200, "WAKE"), entry(150, "LATE")}), 0);
    EXPECT_THAT(out, Not(HasSubstr("INIT")));
    EXPECT_THAT(out, Not(HasSubstr(" BOOT ")));
    EXPECT_THAT(out, HasSubstr("         200 WAKE"));
    EXPECT_THAT(out, Not(HasSubstr("LATE")));
    EXPECT_TRUE(events().empty());
}

TEST_F(TraceLogTest, ErrorsRaiseEventsByHealth)
{
    const Bytes log =
        join({entry(1, "BPup", 0x10, 0x20, 3), entry(2, "WARN", 0x1, 0x2, 4)});
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
