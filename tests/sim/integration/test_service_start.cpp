// The secure boot service's start on the virtual board: what it halts on,
// the SMC resets it asks the eRoT for, and the boot it skips.

#include "sim_runs.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* resetNote = "== ubb-sim: SMC reset by the eRoT's system "
                                  "reset; the SMC boots from flash ";

json erotState(const SimRun& sim)
{
    return json::parse(slurp(sim.outDir / "erot-state.json"));
}

std::string status(const SimRun& sim)
{
    return sim.orvaneProperty("SecureBoot_Status", "Status");
}

TEST(ServiceStart, HaltsOnAFailedSmcRecordAndAfterOneSmcFpgaFlip)
{
    // Halted before any component: standby never finished, yet the
    // daemon's objects still answer at the end.
    SimRun failed = run("smc-record-failed");
    EXPECT_EQ(failed.trailCount("The SMC secure_boot_status check has failed"),
              1);
    EXPECT_EQ(failed.trailCount("The secure_boot_status check(BKC integrity) "
                                "has failed. Halt boot and enter FW recovery"),
              1);
    EXPECT_EQ(failed.trailCount("=== Start Secure Boot ==="), 0);
    EXPECT_EQ(status(failed), "ManualRecovery");
    EXPECT_EQ(failed.powerStatus("BasePowerStatus"), "Off");
    EXPECT_LT(failed.firstChange("GPU_BASE_FPGA_READY", "1"), 0);

    SimRun flipped = run("smc-fpga-no-bpr");
    EXPECT_THAT(flipped.console, HasSubstr("started 2 time(s)"));
    EXPECT_THAT(flipped.console, HasSubstr("1 SMC reset(s); side B active"));
    const size_t flip =
        flipped.trail.find("Change the flash from FLASH A to FLASH B");
    const size_t reset = flipped.trail.find(resetNote + std::string("B =="));
    ASSERT_NE(flip, std::string::npos);
    EXPECT_GT(reset, flip);
    EXPECT_EQ(flipped.trailCount("Change the flash"), 1);
    EXPECT_THAT(flipped.texts("AutomaticRecoveryTriggered"),
                ElementsAre("Component SMC_FPGA enters auto recovery mode."));
    EXPECT_THAT(flipped.texts("SecureFWUnexpectedRespWarning"),
                ElementsAre("SMC FPGA is broken, must do manual reset!"));
    EXPECT_EQ(status(flipped), "ManualRecovery");
    EXPECT_EQ(erotState(flipped)["persist"],
              "00000000010000000000000000000000");
}

TEST(ServiceStart, FinishedBootResetsWithHostOffAndIsSkippedWithHostOn)
{
    SimRun off = run("finished-host-off");
    EXPECT_EQ(off.trailCount("Secure boot has finished. The host power is "
                             "OFF. Do SMC Reset!!"),
              1);
    EXPECT_EQ(off.trailCount(resetNote + std::string("A ==")), 1);
    // The daemon after the reset verified again and set the flag anew.
    EXPECT_EQ(off.trailCount("=== end of Secure Boot ==="), 1);
    EXPECT_EQ(off.trailCount("Skip Secure Boot"), 0);
    EXPECT_EQ(erotState(off)["resetReason"], 3);
    // SECURE_BOOT_FINISHED set anew, and the copy beside base power done.
    EXPECT_EQ(erotState(off)["persist"], "0c000000000000000000000000000000");

    // No reset and no verification; the success waits for log_nv, mounted
    // at 35 s: the look every 10 s that follows sees it.
    SimRun on = run("finished-host-on");
    EXPECT_THAT(on.console, HasSubstr("0 SMC reset(s)"));
    EXPECT_EQ(on.trailCount("Caching the SMC side component info... (before "
                            "skip secure boot)"),
              1);
    EXPECT_EQ(on.trailCount("=== Start Secure Boot ==="), 0);
    EXPECT_EQ(on.trailCount("Do SMC Reset"), 0);
    EXPECT_THAT(on.texts("BootSuccess"), ElementsAre("Skip Secure Boot"));
    const double success = on.at("BootSuccess", "Skip Secure Boot", 0);
    EXPECT_GE(success, 35.0);
    EXPECT_LT(success, 45.5);
    EXPECT_THAT(on.trail, HasSubstr("log_nv first-access took "));
    EXPECT_EQ(status(on), "Success");
    EXPECT_LT(on.firstChange("UBB_FPGA_PROG_B", "0"), 0);
    // The manifest's 0 reads as none, its 0xFFFFFFFF as it is.
    EXPECT_EQ(on.orvaneProperty("SecureImageInfo.UBB_FPGA", "BKC_Version"),
              "NaN");
    EXPECT_EQ(on.orvaneProperty("SecureImageInfo.RMC", "BKC_Version"),
              "0xffffffff");
    EXPECT_THAT(on.trail, Not(HasSubstr("Failed to open /proc/mounts")));
}

} // namespace
} // namespace ubbsim::test
