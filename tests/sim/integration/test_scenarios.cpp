#include "sim_run_fixture.hpp"

#include <regex>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

using ::testing::HasSubstr;
using ::testing::Not;

// Runs fast enough for a test, slow enough that a busy machine doesn't
// stretch a board second.
const std::vector<std::string> testSpeed = {"--speed", "20"};

std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
    {
        out.push_back(line);
    }
    return out;
}

TEST(SimScenario, NominalBootShowsTheTrailEventsAndWaveform)
{
    SimRun run = runSim("nominal", testSpeed);
    ASSERT_EQ(run.status, 0) << run.console;

    auto trail = lines(run.trail);
    ASSERT_FALSE(trail.empty());
    std::regex prefix(R"(^\(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\) \[INFO )"
                      R"("boot_driver\.cpp":\d+\] \*\*\* Enter Boot )"
                      R"(Critical Section\. \*\*\*$)");
    EXPECT_TRUE(std::regex_match(trail.front(), prefix)) << trail.front();
    EXPECT_THAT(run.trail, HasSubstr("|                             Boot  "
                                     "Time                           |"));

    // The host's enable, as the analyser sees it.
    double up = run.firstChange("GPU_BASE_PWR_EN", "1");
    double down = run.firstChange("GPU_BASE_PWR_EN", "0");
    EXPECT_NEAR(up, 40.0, 0.01);
    EXPECT_NEAR(down, 90.0, 0.01);
    EXPECT_THAT(run.waveform, HasSubstr("$enddefinitions"));

    EXPECT_THAT(run.console, HasSubstr("== ubb-sim: scenario nominal"));
    EXPECT_THAT(run.console, HasSubstr("events raised:"));
}

TEST(SimScenario, WarmResetFindsTheBoardRunning)
{
    SimRun run = runSim("warm-reset", testSpeed);
    ASSERT_EQ(run.status, 0) << run.console;
    // Board power stayed up: the FPGA answers with every module good.
    EXPECT_THAT(run.trail,
                HasSubstr("Module Power Good Register 0x61 value is ff"));
    for (const auto& event : run.events)
    {
        EXPECT_NE(event.value("call", ""), "i2cLog") << event.dump();
    }
}

TEST(SimScenario, DaemonRestartIsAnSmcResetUnderBoardPower)
{
    auto path = writeScenario(
        "restart", {{"name", "restart"},
                    {"host", {{{"at", 0}, {"action", "enable"}}}},
                    {"start", "warm"},
                    {"baseWasOn", true},
                    {"daemon", {{{"at", 10}, {"action", "restart"}}}},
                    {"end", 25}});
    SimRun run = runSim(path, testSpeed);
    ASSERT_EQ(run.status, 0) << run.console;
    size_t first = run.trail.find("Enter Boot Critical Section");
    ASSERT_NE(first, std::string::npos);
    EXPECT_NE(run.trail.find("Enter Boot Critical Section", first + 1),
              std::string::npos);
    EXPECT_THAT(run.console, HasSubstr("started 2 time(s)"));
}

TEST(SimScenario, BusyEnableLineGoesToTheJournal)
{
    auto path = writeScenario(
        "busy",
        {{"name", "busy"},
         {"host", {{{"at", 0}, {"action", "enable"}}}},
         {"faults",
          {{{"kind", "gpioBusy"}, {"line", "GPU_BASE_PWR_EN"}, {"at", 0}}}},
         {"end", 30}});
    // Real speed: the 10,000 requests of a busy read are 10,000 round
    // trips to the board, which a sanitizer build makes slow.
    SimRun run = runSim(path, {"--real-time"});
    ASSERT_EQ(run.status, 0) << run.console;
    ASSERT_FALSE(run.journal.empty());
    EXPECT_EQ(run.journal[0].value("message", ""),
              "Error setting gpio as Input GPU_BASE_PWR_EN");
    EXPECT_EQ(run.journal[0].value("line", 0), 811);
    EXPECT_EQ(run.journal[0].value("priority", 0), 3);
    EXPECT_THAT(run.trail, Not(HasSubstr("Boot  Time")));
}

TEST(SimScenario, InvalidScenarioNamesTheField)
{
    auto path = writeScenario(
        "bad", {{"name", "bad"},
                {"faults", {{{"kind", "railNoPowerGood"}, {"rail", "VCC"}}}}});
    SimRun run = runSim(path, testSpeed);
    EXPECT_NE(run.status, 0);
    EXPECT_THAT(run.console, HasSubstr("faults[0].rail"));
    EXPECT_THAT(run.trail, Not(HasSubstr("Enter Boot")));
}

} // namespace
} // namespace ubbsim::test
