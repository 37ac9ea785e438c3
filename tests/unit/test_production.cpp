#include "fakes/fake_platform.hpp"
#include "utils/platform/real_clock.hpp"
#include "utils/platform/real_shell.hpp"
#include "utils/platform/zellib_fallback.hpp"

#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane
{
namespace
{

using namespace ::testing;
using Fields = std::vector<std::string>;

class ZellibFallbackTest : public ::testing::Test
{
  protected:
    test::FakePlatform fake;
    std::vector<Fields> sent;
    platform::ZellibFallback library{
        [this](const Fields& fields) { sent.push_back(fields); },
        "/var/lib/orvane/log-dumps"};
};

TEST_F(ZellibFallbackTest, EventsCarryRedfishFieldsAndPriority)
{
    library.addNvLog("text", 2, "ResourceEvent.1.2.1.ResourceRetryFailOEM",
                     "HSC power good", "", "x");
    library.addLog("plain", 9, "", "", "", "");
    ASSERT_EQ(sent.size(), 2U);
    // Empty arguments leave no gap in the argument list.
    EXPECT_THAT(sent[0], IsSupersetOf({"MESSAGE=text", "PRIORITY=2",
                                       "REDFISH_MESSAGE_ID=ResourceEvent.1.2.1."
                                       "ResourceRetryFailOEM",
                                       "REDFISH_MESSAGE_ARGS=HSC power good,x",
                                       "ORVANE_NON_VOLATILE=1"}));
    // No message id: a plain journal line, priority clamped to debug.
    EXPECT_THAT(sent[1], Contains("PRIORITY=7"));
    EXPECT_THAT(sent[1], Each(Not(StartsWith("REDFISH_"))));
}

TEST_F(ZellibFallbackTest, I2cRecordBecomesStructuredEntry)
{
    uint8_t write[2] = {0x4E, 0x01};
    I2CLogData data;
    data.bus = 3;
    data.address = 0x56;
    data.reg = 0xF2;
    data.writeLength = 2;
    data.writeBuffer = write;
    data.writeFailed = true;
    data.message = "RM failure. Retry 3";
    library.addI2cLog(2, &data, true);
    EXPECT_EQ(library.addI2cLog(2, nullptr, true), -1);
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_THAT(
        sent[0],
        IsSupersetOf({"MESSAGE=RM failure. Retry 3", "ORVANE_I2C_BUS=3",
                      "ORVANE_I2C_ADDRESS=86", "ORVANE_I2C_WRITE_DATA=4e 01",
                      "ORVANE_I2C_FAILURE=write"}));
}

TEST_F(ZellibFallbackTest, DumpHoldsTheMostRecentEvents)
{
    for (size_t i = 0; i < platform::ZellibFallback::keptEvents + 10; ++i)
    {
        library.addLog("event " + std::to_string(i), 6, "Id", "", "", "");
    }
    auto [code, path] =
        library.logDump("OAMPowerStatus", "Critical", "OAM_1", 0.0);
    ASSERT_EQ(code, 0);
    EXPECT_TRUE(path.starts_with("/var/lib/orvane/log-dumps/dump-"
                                 "OAMPowerStatus-Critical-"));
    std::ifstream in(fake.files.resolve(path));
    std::stringstream text;
    text << in.rdbuf();
    EXPECT_NE(text.str().find("detail: OAM_1"), std::string::npos);
    EXPECT_EQ(text.str().find("event 9\n"), std::string::npos);
    EXPECT_NE(text.str().find("event 10\n"), std::string::npos);
    EXPECT_NE(text.str().find("event 265\n"), std::string::npos);
    // A second dump in the same second gets a name of its own.
    EXPECT_NE(
        library.logDump("OAMPowerStatus", "Critical", "OAM_1", 0.0).second,
        path);
}

void onAlarm(int)
{}

TEST(RealClockTest, InterruptedSleepGoesOnWithTheRest)
{
    struct sigaction action
    {};
    action.sa_handler = onAlarm; // no SA_RESTART: nanosleep sees EINTR
    struct sigaction previous
    {};
    sigaction(SIGALRM, &action, &previous);
    itimerval timer{{0, 10'000}, {0, 10'000}};
    setitimer(ITIMER_REAL, &timer, nullptr);

    auto start = std::chrono::steady_clock::now();
    platform::sleepResuming(std::chrono::milliseconds(120));
    auto slept = std::chrono::steady_clock::now() - start;

    itimerval off{};
    setitimer(ITIMER_REAL, &off, nullptr);
    sigaction(SIGALRM, &previous, nullptr);
    EXPECT_GE(slept, std::chrono::milliseconds(120));
}

TEST(RealShellTest, StatusAndOutputOfCommands)
{
    auto shell = platform::makeRealShell();
    int status = shell->system("exit 3");
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);

    auto pipe = shell->popen("printf 'one\\ntwo'; exit 2");
    ASSERT_NE(pipe, nullptr);
    std::string output;
    char buffer[4];
    for (size_t n; (n = pipe->read(buffer, sizeof(buffer))) > 0;)
    {
        output.append(buffer, n);
    }
    EXPECT_EQ(output, "one\ntwo");
    EXPECT_EQ(WEXITSTATUS(pipe->close()), 2);
}

} // namespace
} // namespace orvane
