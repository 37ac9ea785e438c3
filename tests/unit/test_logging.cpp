#include "fakes/console_capture.hpp"
#include "fakes/fake_platform.hpp"
#include "logging/events.hpp"
#include "logging/log_line.hpp"
#include "main/boot_report.hpp"

#include <cstdlib>
#include <ctime>
#include <iomanip>
#include <sstream>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>

namespace orvane::logging
{
namespace
{

using test::console;
using test::ZellibCall;

class LoggingTest : public ::testing::Test
{
  protected:
    test::FakePlatform fake;
};

// The prefix is UTC whatever the local zone, and its time is taken when the
// line is made.
TEST_F(LoggingTest, ConsoleLineCarriesUtcPrefixQuotedFileAndNewline)
{
    const char* old = std::getenv("TZ");
    std::string saved = old ? old : "";
    setenv("TZ", "Asia/Tokyo", 1);
    tzset();
    std::string out = console([this] {
        LogLine line(level::ERR, "src/utils/utils", 63, true, false, true, "",
                     "", "", "");
        fake.clock.advance(std::chrono::seconds(5));
        line << "Failed to open the I2C bus";
    });
    old ? setenv("TZ", saved.c_str(), 1) : unsetenv("TZ");
    tzset();
    EXPECT_EQ(out, "(2026-11-14 16:05:16) [ERROR \"utils\":63] Failed to "
                   "open the I2C bus\n");

    out = console([] {
        LogLine(level::INFO, "f", 1, true, false, false, "", "", "", "")
            << "bare";
        ConsoleLog(level::INFO)
            << "v=0x" << std::hex << std::setw(4) << std::setfill('0') << 0x2a
            << std::dec << " n=" << 12 << std::endl;
    });
    EXPECT_EQ(out.substr(0, 5), "bare\n");
    EXPECT_NE(out.find("] v=0x002a n=12\n\n"), std::string::npos);
}

TEST_F(LoggingTest, DestinationsNeverMix)
{
    std::string out = console([] {
        // Console wins over the non-volatile flag.
        LogLine(level::CRITICAL, "f", 1, true, true, true, "Id", "a", "b", "c")
            << "both";
        NvEvent(level::WARNING, "OrvaneSvcUnexpected", "x", "", "") << "nv";
        PlainEvent(level::WARNING, "Plain", "", "y", "") << "plain";
    });
    EXPECT_NE(out.find("both"), std::string::npos);
    EXPECT_EQ(out.find("nv"), std::string::npos);

    auto calls = fake.zellib.calls();
    ASSERT_EQ(calls.size(), 3U);
    EXPECT_EQ(calls[0].kind, ZellibCall::Kind::nvLog);
    EXPECT_EQ(calls[1].kind, ZellibCall::Kind::log);
    EXPECT_EQ(calls[0].message, calls[1].message);
    EXPECT_EQ(calls[0].messageId, "OrvaneSvcUnexpected");
    EXPECT_EQ(calls[0].arg1, "x");
    EXPECT_EQ(calls[0].level, level::WARNING);
    // The library gets the same prefix as the console.
    EXPECT_EQ(calls[0].message.substr(0, 34),
              "(2026-11-14 16:05:16) [WARNING \"te");
    EXPECT_EQ(calls[2].kind, ZellibCall::Kind::log);
    EXPECT_EQ(calls[2].arg2, "y");
    EXPECT_TRUE(calls[2].message.ends_with("] plain"));
}

// One flag per code; the codes without a record reach no library.
TEST_F(LoggingTest, I2cRecordFlagsFollowTheCode)
{
    uint8_t write[2] = {0x4E, 0x01};
    uint8_t read = 0;
    for (int code : {1, 2, 4, 5, 6})
    {
        fake.zellib.clear();
        EXPECT_EQ(AddI2CEvent(code, level::WARNING, "msg", true, 3, 0x56, 0xF2,
                              2, write, 1, &read),
                  0);
        auto calls = fake.zellib.calls(ZellibCall::Kind::i2cLog);
        ASSERT_EQ(calls.size(), 1U) << code;
        const I2CLogData& r = *calls[0].i2c;
        EXPECT_EQ(std::tuple(r.noAccess, r.writeFailed, r.readFailed,
                             r.otherFailure, r.message),
                  std::tuple(code <= 2, code == 4, code == 5, code == 6, "msg"))
            << code;
    }

    fake.zellib.clear();
    for (int code : {0, 3, 7, -1})
    {
        ::testing::internal::CaptureStderr();
        EXPECT_EQ(
            AddI2CEvent(code, 2, "m", false, 0, 0, 0, 0, nullptr, 0, nullptr),
            -1);
        EXPECT_EQ(::testing::internal::GetCapturedStderr(),
                  "Undefined I2C_Event code\n");
    }
    EXPECT_TRUE(fake.zellib.calls().empty());
}

TEST_F(LoggingTest, PowerTransitionMakesFourCallsInOrder)
{
    LogPowerTransition(false, true);
    auto calls = fake.zellib.calls();
    using Call = std::tuple<ZellibCall::Kind, std::string>;
    std::vector<Call> made;
    for (const auto& call : calls)
    {
        made.emplace_back(call.kind, call.arg1);
        EXPECT_EQ(call.messageId, "ResourceEvent.1.2.1.ResourcePoweringOff");
        EXPECT_EQ(call.level, level::INFO);
        EXPECT_EQ(call.arg2 + call.arg3, "");
    }
    EXPECT_EQ(made,
              (std::vector<Call>{{ZellibCall::Kind::nvLog, "UBB standby"},
                                 {ZellibCall::Kind::nvLog, "OAM standby"},
                                 {ZellibCall::Kind::log, "UBB standby"},
                                 {ZellibCall::Kind::log, "OAM standby"}}));
    EXPECT_EQ(calls[0].message, "Power Sequence: UBB StandBy Power Off");
    EXPECT_EQ(calls[1].message, "Power Sequence: OAM StandBy Power Off");

    fake.zellib.clear();
    LogPowerTransition(true, false);
    calls = fake.zellib.calls();
    ASSERT_EQ(calls.size(), 4U);
    EXPECT_EQ(calls[0].messageId, "ResourceEvent.1.2.1.ResourcePoweringOn");
    EXPECT_EQ(calls[0].message, "Power Sequence: UBB Base Power On");
    EXPECT_EQ(calls[1].arg1, "OAM base");
}

// A dump, then one non-volatile entry naming its path; a failed dump is
// told and its path still returned.
TEST_F(LoggingTest, PowerCriticalDumpsThenOneNonVolatileEntry)
{
    fake.zellib.dumpPath = "/var/dump/7";
    ReportPowerCritical(false, "OAM_3 module power good");
    auto calls = fake.zellib.calls();
    ASSERT_EQ(calls.size(), 2U);
    using Call = std::tuple<ZellibCall::Kind, int, std::string, std::string,
                            std::string, std::string>;
    auto fields = [](const ZellibCall& c) {
        return Call{c.kind, c.level, c.messageId, c.arg1, c.arg2, c.arg3};
    };
    const std::string detail = "OAM_3 module power good";
    EXPECT_EQ(fields(calls[0]), (Call{ZellibCall::Kind::dump, 0, "",
                                      "OAMPowerStatus", "Critical", detail}));
    EXPECT_EQ(fields(calls[1]),
              (Call{ZellibCall::Kind::nvLog, level::CRITICAL,
                    "OAMPowerStatusCritical", detail, "", "/var/dump/7"}));
    EXPECT_EQ(calls[1].message, "Power Sequence: OAM power OAM_3 module power "
                                "good goes down or status critical fault.");

    fake.zellib.dumpCode = 5;
    fake.zellib.dumpPath = "/p";
    std::string out =
        console([] { EXPECT_EQ(TriggerLogDump("a", "b", "c", 1.5), "/p"); });
    EXPECT_NE(out.find("[WARNING \"events.cpp\":"), std::string::npos);
    EXPECT_NE(out.find("orvane tigger log dump fail. code: 5"),
              std::string::npos);
}

// The clock goes on past 2038 on the 32-bit SMC as well: a 32-bit time_t
// prints the second after 2038-01-19 03:14:07 as 1901-12-13 20:45:52.
TEST_F(LoggingTest, StampsAndBootReportPast2038)
{
    const std::pair<int64_t, std::string> stamps[] = {
        {2'147'483'647, "(2038-01-19 03:14:07) ["},
        {2'147'483'648, "(2038-01-19 03:14:08) ["},
        // 2100 is no leap year.
        {4'107'542'399, "(2100-02-28 23:59:59) ["},
        {4'107'542'400, "(2100-03-01 00:00:00) ["},
    };
    for (const auto& [utc, stamp] : stamps)
    {
        fake.clock.setWall(
            std::chrono::system_clock::time_point(std::chrono::seconds(utc)));
        std::string out = console([] {
            PrintBootTimeReport({1.5, 2, 3}, {{"IFWI", 4}});
            NvEvent(level::WARNING, "OrvaneSvcUnexpected", "", "", "") << "e";
        });
        std::istringstream lines(out);
        int count = 0;
        for (std::string line; std::getline(lines, line); ++count)
        {
            EXPECT_TRUE(line.starts_with(stamp)) << line;
        }
        EXPECT_EQ(count, 7);
        EXPECT_NE(out.find("] *** StandBy Power On took 1.5 sec ***\n"),
                  std::string::npos);
        EXPECT_NE(out.find("] *** Base Power On took 3sec *** \n"),
                  std::string::npos);
        EXPECT_TRUE(fake.zellib.calls().back().message.starts_with(stamp));
    }
}

} // namespace
} // namespace orvane::logging
