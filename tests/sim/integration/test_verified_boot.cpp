// The verified boot on the virtual board: what the driver decides at its
// end, judged by the trail, the events and the eRoT's own trace log.

#include "sim_runs.hpp"

#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

using ::testing::Contains;
using ::testing::ElementsAre;
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

// The copy beside base power: an inactive side that differs is made equal
// to the active one, backup flash included; an erase that fails stops the
// copy half way, with base power unharmed.
TEST(FirmwareCopy, MakesTheInactiveSideEqualOrStopsAtAFailedErase)
{
    SimRun copied = run("copy-inactive-differs");
    SimRun failed = run("copy-erase-fails");
    for (const SimRun* sim : {&copied, &failed})
    {
        EXPECT_EQ(sim->trailCount("Base power good signal asserted"), 1);
        EXPECT_EQ(sim->trailCount("*** Leave Boot Critical Section. ***"), 1);
        // The updater heard of the rewrite, and of its end either way.
        std::vector<std::string> writes;
        for (const json& call : jsonLines(sim->outDir / "neighbours.jsonl"))
        {
            if (call["member"] == "SMCUpdateOnGoing")
            {
                writes.push_back(call["arguments"]);
            }
        }
        EXPECT_THAT(writes, ElementsAre("true", "false"));
    }
    const fs::path root = copied.outDir / "root";
    for (const char* file :
         {"fwbundle.ahdr", "rm.bin", "ifwi.ahdr", "retimer.bin",
          "ubb-fpga.ahdr", "smc_fpga_pldm.ahdr"})
    {
        EXPECT_EQ(slurp(root / "var/lib/images/B" / file),
                  slurp(root / "var/lib/images/A" / file))
            << file;
    }
    EXPECT_FALSE(fs::exists(root / "var/lib/images/B/retimer-1.bin"));
    EXPECT_EQ(slurp(root / "dev/mtd1"), slurp(root / "dev/mtd0"));
    EXPECT_FALSE(fs::exists(root / "tmp/secure-boot/A/smc.bin"));
    EXPECT_FALSE(fs::exists(root / "tmp/secure-boot/B/smc.bin"));
    EXPECT_THAT(copied.texts("AutoFWCopySuccess"), ElementsAre(""));
    EXPECT_EQ(copied.orvaneProperty("SecureBoot_Status", "Status"), "Success");
    const json erot =
        json::parse(slurp(copied.outDir / "erot-state.json"), nullptr, false);
    EXPECT_EQ(std::stoi(erot.value("persist", "00").substr(0, 2), nullptr, 16) &
                  0x08,
              0x08)
        << "FIRMWARE_COPY_COMPLETED";
    EXPECT_EQ(copied.trailCount("parallelTask Copy Occur failed"), 0);

    const fs::path left = failed.outDir / "root";
    EXPECT_NE(slurp(left / "dev/mtd1"), slurp(left / "dev/mtd0"));
    EXPECT_EQ(slurp(left / "dev/mtd2").find_first_not_of('\xff'),
              std::string::npos)
        << "bmc_backup_update erased before the failure";
    EXPECT_NE(slurp(left / "var/lib/images/B/rm.bin"),
              slurp(left / "var/lib/images/A/rm.bin"));
    EXPECT_THAT(failed.texts("AutoFWCopyFailure"), ElementsAre(""));
    EXPECT_EQ(failed.trailCount("Erase smc_ahdr_update failed"), 1);
    EXPECT_EQ(failed.trailCount("parallelTask Copy Occur failed"), 1);
    EXPECT_EQ(failed.orvaneProperty("SecureBoot_Status", "Status"),
              "InProgress");
}

// Devices that differ from a sound image tree are programmed by the
// board's tools and then found right: the retimer in the second compare,
// the RMs at the next check. A retimer that never takes its image halts
// the boot after three programmings.
TEST(VerifiedBoot, DevicesThatDifferAreReprogrammedOrHaltTheBoot)
{
    json scenario =
        json::parse(slurp(fs::path(UBB_SIM_SCENARIOS) / "spoilt-devices.json"));
    scenario["host"] = json::array();
    scenario["end"] = 40;
    SimRun mended = run(writeScenario("devices-mended", scenario));
    const std::string tools = slurp(mended.outDir / "root/var/log/tools.log");
    const std::string images =
        (mended.outDir / "root/var/lib/images/A/").string();
    EXPECT_THAT(tools, HasSubstr("/usr/sbin/retimer-update-secureboot.sh " +
                                 images + "retimer.bin 0x"));
    EXPECT_EQ(mended.trailCount("i2cSwitchValues[7]"), 1) << "one full pass";
    const auto updated = mended.texts("Update.1.0.1.UpdateSuccessful");
    EXPECT_EQ(std::count(updated.begin(), updated.end(),
                         "Retimer update completed successfully."),
              1);
    EXPECT_THAT(updated, Contains("RMC update successfully with image "
                                  "/var/lib/images/A/rm.bin"));
    EXPECT_THAT(
        tools, HasSubstr("/usr/sbin/ifwi-update.sh " + images + "ifwi.bin 0x"));
    EXPECT_THAT(tools, HasSubstr("/usr/bin/zel-rm " + images + "rm.bin 0x"));
    EXPECT_EQ(mended.trailCount("Verify RM SHA256 success, skip update RM."),
              1);
    EXPECT_EQ(mended.trailCount("OAM6 RM sha256 pass"), 1);
    EXPECT_EQ(mended.trailCount("=== end of Secure Boot ==="), 1);
    for (const char* name : {"Retimer", "RM", "IFWI"})
    {
        EXPECT_THAT(mended.texts("ResourceEvent.1.2.1.ResourcePoweringOn", ""),
                    Contains(std::string("The component ") + name +
                             " is powering on."));
    }

    scenario["devices"]["stuckRetimers"] = {"0x10"};
    SimRun stuck = run(writeScenario("retimer-stuck", scenario));
    const auto programmed = stuck.texts("Update.1.0.1.UpdateSuccessful");
    EXPECT_EQ(std::count(programmed.begin(), programmed.end(),
                         "Retimer update completed successfully."),
              3);
    EXPECT_EQ(stuck.trailCount("Retimer Hash can't match after 3 times "
                               "Re-Program!"),
              1);
    EXPECT_EQ(stuck.orvaneProperty("SecureBoot_Status", "Status"),
              "ManualRecovery");
    EXPECT_EQ(stuck.trailCount("=== end of Secure Boot ==="), 0);
}

} // namespace
} // namespace ubbsim::test
