#include "fakes/fake_platform.hpp"
#include "logging/log_line.hpp"

#include <cstdlib>
#include <ctime>
#include <iomanip>

#include <gtest/gtest.h>

namespace orvane::logging
{
namespace
{

using test::ZellibCall;

class LogLineTest : public ::testing::Test
{
  protected:
    test::FakePlatform fake;

    std::string console(const std::function<void()>& body)
    {
        ::testing::internal::CaptureStdout();
        body();
        return ::testing::internal::GetCapturedStdout();
    }
};

TEST_F(LogLineTest, ConsoleLineCarriesUtcPrefixQuotedFileAndNewline)
{
    std::string out = console([] {
        LogLine(level::ERR, "src/utils/utils", 63, true, false, true, "", "",
                "", "")
            << "Failed to open the I2C bus";
    });
    EXPECT_EQ(out, "(2026-11-14 16:05:16) [ERROR \"utils\":63] Failed to "
                   "open the I2C bus\n");
}

TEST_F(LogLineTest, PrefixIsUtcWhateverTheLocalZone)
{
    const char* old = std::getenv("TZ");
    std::string saved = old ? old : "";
    setenv("TZ", "Asia/Tokyo", 1);
    tzset();
    std::string out = console([] {
        LogLine(level::INFO, "f", 1, true, false, true, "", "", "", "");
    });
    old ? setenv("TZ", saved.c_str(), 1) : unsetenv("TZ");
    tzset();
    EXPECT_EQ(out, "(2026-11-14 16:05:16) [INFO \"f\":1] \n");
}

TEST_F(LogLineTest, LevelNamesAndOutOfRangeLevel)
{
    EXPECT_EQ(linePrefix(0, 0, "a", 1),
              "(1970-01-01 00:00:00) [EMERGENCY \"a\":1] ");
    EXPECT_EQ(linePrefix(0, 5, "a", 1),
              "(1970-01-01 00:00:00) [NOTICE \"a\":1] ");
    EXPECT_EQ(linePrefix(0, 7, "a", 1),
              "(1970-01-01 00:00:00) [DEBUG \"a\":1] ");
    // An unknown level keeps the blank after the empty name.
    EXPECT_EQ(linePrefix(0, 8, "a", 1), "(1970-01-01 00:00:00) [ \"a\":1] ");
    EXPECT_EQ(linePrefix(0, -1, "a", 1), "(1970-01-01 00:00:00) [ \"a\":1] ");
}

TEST_F(LogLineTest, FileNameIsLastComponentQuotedWithEscapes)
{
    EXPECT_EQ(linePrefix(0, 6, "/a/b/we\"ird\\name.cpp", 9),
              "(1970-01-01 00:00:00) [INFO \"we\\\"ird\\\\name.cpp\":9] ");
    EXPECT_EQ(linePrefix(0, 6, "dir/", 9),
              "(1970-01-01 00:00:00) [INFO \"\":9] ");
    EXPECT_EQ(linePrefix(0, 6, "", 9), "(1970-01-01 00:00:00) [INFO \"\":9] ");
}

TEST_F(LogLineTest, StreamsFormatLikeAnOutputStream)
{
    std::string out = console([] {
        ConsoleLog(level::INFO)
            << "v=0x" << std::hex << std::setw(4) << std::setfill('0') << 0x2a
            << std::dec << " n=" << 12 << std::endl;
    });
    EXPECT_NE(out.find("] v=0x002a n=12\n\n"), std::string::npos);
}

TEST_F(LogLineTest, TimeStampIsTakenWhenTheLineIsMade)
{
    std::string out = console([this] {
        LogLine line(level::INFO, "f", 1, true, false, true, "", "", "", "");
        fake.clock.advance(std::chrono::seconds(5));
        line << "late";
    });
    EXPECT_EQ(out.substr(0, 21), "(2026-11-14 16:05:16)");
}

TEST_F(LogLineTest, DestinationsNeverMix)
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

TEST_F(LogLineTest, WithoutPrefixOnlyTheText)
{
    std::string out = console([] {
        LogLine(level::INFO, "f", 1, true, false, false, "", "", "", "")
            << "bare";
    });
    EXPECT_EQ(out, "bare\n");
}

} // namespace
} // namespace orvane::logging
