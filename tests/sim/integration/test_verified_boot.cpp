// The verified boot on the virtual board: what the driver decides at its
// end, judged by the trail, the events and the eRoT's own trace log.

#include "sim_runs.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

// The revocation events of the retimer, as "id|first argument".
std::vector<std::string> retimerRevocations(const SimRun& sim)
{
    std::vector<std::string> found;
    for (const json& event : sim.events)
    {
        const std::string id = event.value("id", "");
        const std::string arg = event.value("args", json::array()).empty()
                                    ? ""
                                    : event["args"][0].get<std::string>();
        if (id.find(".Revocation") != std::string::npos &&
            arg.starts_with("Retimer,"))
        {
            found.push_back(id.substr(id.rfind('.') + 1) + "|" + arg);
        }
    }
    return found;
}

TEST(VerifiedBoot, StagedUpdateCommitsAntiRollbackOnlyWhenTheErotAutoCommits)
{
    json scenario =
        json::parse(slurp(fs::path(UBB_SIM_SCENARIOS) / "arb-staged.json"));
    SimRun commit = run("arb-staged");
    EXPECT_EQ(commit.trailCount(
                  "Set SignalBootStatus to SIGNAL_BOOT_SUCCESS_SUCCESS_ARB"),
              1);
    // The eRoT saw stage 0 and committed (its trace log, as printed last).
    EXPECT_EQ(commit.trailCount("BTOK 0x00000000 0x00000001"), 1);
    EXPECT_EQ(commit.trailCount("Auto_ARB_Commit is set to disabled"), 1);
    EXPECT_EQ(commit.trailCount("Clear updateOnReboot"), 1);
    EXPECT_THAT(retimerRevocations(commit),
                Contains("RevocationSuccessOEM|Retimer,SVN,0x00000001"));
    EXPECT_THAT(retimerRevocations(commit),
                Contains(HasSubstr("RevocationStateOEM|Retimer,KeyID,"
                                   "0x00000000,completed")));

    scenario["erot"]["autoArb"] = false;
    SimRun deferred = run(writeScenario("arb-deferred", scenario));
    EXPECT_EQ(deferred.trailCount("Set SignalBootStatus to "
                                  "SIGNAL_BOOT_SUCCESS_SUCCESS_DEFER_ARB"),
              1);
    EXPECT_EQ(deferred.trailCount("BTOK 0x00000001 0x00000000"), 1);
    EXPECT_EQ(deferred.trailCount("Auto_ARB_Commit"), 0);
    EXPECT_THAT(retimerRevocations(deferred),
                Not(Contains(HasSubstr("RevocationSuccessOEM"))));
    EXPECT_THAT(retimerRevocations(deferred),
                Contains("RevocationStateOEM|Retimer,SVN,0x00000001,"
                         "requested but not completed"));
}

} // namespace
} // namespace ubbsim::test
