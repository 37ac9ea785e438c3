#include "fakes/console_capture.hpp"
#include "fakes/fake_platform.hpp"
#include "utils/gpio_lines.hpp"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using namespace ::testing;
using namespace std::chrono_literals;

constexpr const char* pwrEn = "GPU_BASE_PWR_EN";
constexpr const char* pwrGd = "GPU_BASE_PWR_GD";

class GpioTest : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        platform.gpio.addLines({pwrEn, pwrGd});
        platform.gpio.setInput(pwrEn, 1);
    }

    FakePlatform platform;
};

// Each call requests the line for itself and lets it go; levels are
// physical, whatever the line's name says.
TEST_F(GpioTest, EachCallTakesTheLineAndLetsItGo)
{
    int value = -1;
    std::string out = console([&] {
        EXPECT_TRUE(GetGPIOValue(pwrEn, value));
        EXPECT_EQ(value, 1);
        platform.gpio.setInput(pwrEn, 0);
        EXPECT_TRUE(GetGPIOValue(pwrEn, value));
        EXPECT_EQ(value, 0);
        EXPECT_TRUE(SetGPIOOutput(pwrGd, 1));
        EXPECT_TRUE(SetGPIOOutput(pwrGd, 0));
    });

    EXPECT_THAT(out, IsEmpty());
    EXPECT_EQ(platform.gpio.requests(pwrEn)[0].direction,
              platform::GpioDirection::input);
    auto drives = platform.gpio.requests(pwrGd);
    ASSERT_THAT(drives, SizeIs(2));
    EXPECT_EQ(drives[0].direction, platform::GpioDirection::output);
    EXPECT_EQ(drives[1].defaultValue, 0);
    EXPECT_THAT(platform.gpio.writes(pwrGd), ElementsAre(1, 0));
    EXPECT_FALSE(platform.gpio.isRequested(pwrEn));
    EXPECT_FALSE(platform.gpio.isRequested(pwrGd));
}

TEST_F(GpioTest, UnknownLineWarnsAndKeepsTheValue)
{
    int value = 7;
    std::string out = console([&] {
        EXPECT_FALSE(GetGPIOValue("NO_SUCH_LINE", value));
        EXPECT_FALSE(SetGPIOOutput("NO_SUCH_LINE", 1));
    });

    EXPECT_EQ(value, 7);
    EXPECT_THAT(out,
                AllOf(HasSubstr("[WARNING \"gpio_lines.cpp\":"),
                      HasSubstr("] Can't find lineNO_SUCH_LINE\n"),
                      HasSubstr("] Failed to find the NO_SUCH_LINE line.\n")));
    EXPECT_THAT(platform.gpio.requests(), IsEmpty());
}

// A busy line is asked again every ten microseconds, ten thousand times at
// most: the last may still get the line.
TEST_F(GpioTest, LineBusyForeverIsReportedToTheJournal)
{
    platform.gpio.setBusy(pwrEn, 9'999);
    int value = -1;
    EXPECT_TRUE(GetGPIOValue(pwrEn, value));
    EXPECT_EQ(value, 1);
    EXPECT_THAT(platform.gpio.requests(pwrEn), SizeIs(10'000));
    EXPECT_THAT(platform.journal.entries(), IsEmpty());

    platform.gpio.setBusy(pwrEn);
    value = 5;
    std::string out =
        console([&] { EXPECT_FALSE(GetGPIOValue(pwrEn, value)); });

    EXPECT_EQ(value, 5);
    EXPECT_THAT(platform.gpio.requests(pwrEn), SizeIs(20'000));
    auto sleeps = platform.clock.sleeps();
    EXPECT_THAT(sleeps, SizeIs(2 * 9'999));
    EXPECT_THAT(sleeps, Each(10us));

    auto entries = platform.journal.entries();
    ASSERT_THAT(entries, SizeIs(1));
    EXPECT_EQ(entries[0].priority, 3);
    EXPECT_THAT(entries[0].file, EndsWith("gpio_lines.cpp"));
    EXPECT_EQ(entries[0].line, 811);
    EXPECT_EQ(entries[0].function, "GetGPIOValue");
    EXPECT_EQ(entries[0].message,
              "Error setting gpio as Input " + std::string(pwrEn));
    // The reason follows on the console, bare, without a line prefix.
    EXPECT_THAT(out, AllOf(StartsWith("error is: "),
                           HasSubstr(std::strerror(EBUSY)), EndsWith("\n")));
    EXPECT_FALSE(platform.gpio.isRequested(pwrEn));
}

// Other request errors on a read, and any on a write, are not retried; a
// failed read or drive is reported and lets the line go.
TEST(GpioFailureTest, EachFailureIsReportedOnce)
{
    const std::string error = "[ERROR \"gpio_lines.cpp\":";
    struct Case
    {
        const char* line;
        void (*fault)(FakeGpio&);
        std::vector<std::string> texts;
        size_t journal;
    };
    // clang-format off
    const Case cases[] = {
        {pwrEn, [](FakeGpio& g) { g.failRequests(pwrEn, EIO, 1); }, {std::strerror(EIO)}, 1},
        {pwrEn, [](FakeGpio& g) { g.failGet(pwrEn, EIO); }, {error, "] Fail to get value", std::strerror(EIO)}, 0},
        {pwrGd, [](FakeGpio& g) { g.setBusy(pwrGd, 1); }, {error, "] Error setting gpio as Output: " + std::string(pwrGd), std::strerror(EBUSY)}, 0},
        {pwrGd, [](FakeGpio& g) { g.failSet(pwrGd, EIO); }, {error, "] Failed to set value for " + std::string(pwrGd), std::strerror(EIO)}, 0},
    };
    // clang-format on
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.texts.back());
        FakePlatform platform;
        platform.gpio.addLines({pwrEn, pwrGd});
        c.fault(platform.gpio);
        int value = 5;
        std::string out = console([&] {
            EXPECT_FALSE(c.line == pwrEn ? GetGPIOValue(pwrEn, value)
                                         : SetGPIOOutput(pwrGd, 1));
        });

        EXPECT_EQ(value, 5);
        for (const std::string& text : c.texts)
        {
            EXPECT_THAT(out, HasSubstr(text));
        }
        EXPECT_THAT(platform.gpio.requests(c.line), SizeIs(1));
        EXPECT_THAT(platform.clock.sleeps(), IsEmpty());
        EXPECT_THAT(platform.gpio.writes(), IsEmpty());
        EXPECT_THAT(platform.journal.entries(), SizeIs(c.journal));
        EXPECT_FALSE(platform.gpio.isRequested(c.line));
    }
}

} // namespace
} // namespace orvane::test
