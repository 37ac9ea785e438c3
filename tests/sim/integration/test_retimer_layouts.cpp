// The retimer layouts of the storage (one image, two images, the first boot
// after a manual update from one to two), and a regulator update failure
// that leaves the RM waiting: the trail, the tools that ran, the files
// afterwards.

#include "sim_runs.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsSupersetOf;
using ::testing::Not;

// The built-in first update, without the host's requests and shorter: the
// layouts are settled long before base power.
json firstUpdate()
{
    json scenario = json::parse(
        slurp(fs::path(UBB_SIM_SCENARIOS) / "retimer-first-update.json"));
    scenario["host"] = json::array();
    scenario["end"] = 30;
    return scenario;
}

// The retimer programmings in the order they ran, as "<file> <mux>".
std::vector<std::string> retimerProgrammings(const SimRun& sim)
{
    std::vector<std::string> found;
    std::istringstream tools(slurp(sim.outDir / "root/var/log/tools.log"));
    for (std::string line; std::getline(tools, line);)
    {
        std::istringstream words(line);
        std::string tool, image, version, mux;
        words >> tool >> image >> version >> mux;
        if (tool == "/usr/sbin/retimer-update-secureboot.sh")
        {
            found.push_back(fs::path(image).filename().string() + " " + mux);
        }
    }
    return found;
}

std::string completed(const std::string& name)
{
    return "The secure boot of the component " + name + " is completed.";
}

std::string manualFlag(const SimRun& sim)
{
    return slurp(sim.outDir / "root/var/lib/orvane/retimer_images/"
                              "enable_manual_retimer_update");
}

// One image in storage, two in the eRoT, the flag set: the single pair goes,
// each of the two images is checked in storage or taken from its archive,
// programmed once and verified, and the flag is cleared after the second.
// An image in neither place is passed over, and the flag stays.
TEST(RetimerLayouts, FirstUpdateToTwoImagesReplacesTheSingleImage)
{
    json scenario = firstUpdate();
    SimRun updated = run(writeScenario("retimer-first-update", scenario));
    EXPECT_EQ(updated.trailCount(
                  "Detected First update with Dual Retimer SMC. Skip BootUp "
                  "Flow for ComponentID : 1536, ComponentName : Retimer"),
              1);
    EXPECT_EQ(updated.trailCount("Retimer image present for ComponentID : "
                                 "1537"),
              1);
    EXPECT_EQ(updated.trailCount("Retimer image not found for ComponentID: "
                                 "1538, ComponentName: Retimer_2"),
              1);
    EXPECT_EQ(updated.trailCount("Manual extraction and copying of Retimer "
                                 "image succeeded for ComponentID: 0x602"),
              1);
    // Retimer_1's stored image through its compare rounds, Retimer_2's
    // extracted one right after the extraction; never all retimers at once.
    EXPECT_THAT(retimerProgrammings(updated),
                ElementsAre("retimer-1.bin 0x66", "retimer-2.bin 0x99"));
    EXPECT_THAT(updated.texts("SecureFWVerifySuccess"),
                IsSupersetOf({"Verify Retimer_1 device successfully.",
                              "Verify Retimer_2 device successfully."}));
    const fs::path images = updated.outDir / "root/var/lib/images";
    for (const char* file : {"A/retimer.bin", "A/retimer.ahdr"})
    {
        EXPECT_FALSE(fs::exists(images / file)) << file;
    }
    EXPECT_EQ(manualFlag(updated), "0\n");
    EXPECT_EQ(updated.trailCount("=== end of Secure Boot ==="), 1);
    EXPECT_EQ(updated.orvaneProperty("SecureBoot_Status", "Status"), "Success");

    scenario["manualRetimer"] = {{"archived", {"Retimer_1"}}};
    SimRun half = run(writeScenario("retimer-first-update-half", scenario));
    EXPECT_EQ(half.trailCount("Failed to extract tar file : \n"), 1);
    EXPECT_THAT(retimerProgrammings(half), ElementsAre("retimer-1.bin 0x66"));
    EXPECT_EQ(half.trailCount("Secure Verifying Retimer_2"), 0);
    EXPECT_EQ(manualFlag(half), "1\n");
    EXPECT_EQ(half.trailCount("=== end of Secure Boot ==="), 1);
}

// Two images in storage: the single retimer is passed over, the pair is
// verified where it stands, and a manual update flag changes nothing.
TEST(RetimerLayouts, TwoImageStorageVerifiesThePairOnly)
{
    json scenario = firstUpdate();
    scenario.erase("manualRetimer");
    scenario["files"] = {
        {"/var/lib/orvane/retimer_images/enable_manual_retimer_update", "1\n"}};
    SimRun dual = run(writeScenario("retimer-dual", scenario));
    EXPECT_EQ(dual.trailCount("Detected Dual Retimer Config. Skip BootUp Flow "
                              "for ComponentID : 1536, ComponentName : "
                              "Retimer\n"),
              1);
    EXPECT_EQ(dual.trailCount("Retimer image present for ComponentID : "), 2);
    const auto booted = dual.texts("ResourceEvent.1.2.1.ResourcePoweredOn");
    EXPECT_THAT(booted,
                IsSupersetOf({completed("Retimer_1"), completed("Retimer_2")}));
    EXPECT_THAT(booted, Not(Contains(completed("Retimer"))));
    EXPECT_THAT(retimerProgrammings(dual), ElementsAre());
    EXPECT_EQ(manualFlag(dual), "1\n");
    EXPECT_EQ(dual.trailCount("=== end of Secure Boot ==="), 1);
}

// The regulators' power-on for their update fails (the hotswap controllers
// never report good): VR fails, the RM, verified, waits for VR for ever, and
// the boot never reaches its end; base power is never given although the
// host asks. The run itself ends at its time.
TEST(VrUpdateFailure, LeavesTheRmWaitingAndTheBootUnfinished)
{
    SimRun stuck = run("vr-power-fails");
    EXPECT_EQ(stuck.trailCount("VR VRComponentInit failed"), 1);
    EXPECT_THAT(stuck.texts("ResourceEvent.1.2.1.ResourceSelfTestFailed"),
                ElementsAre("The VR can't be powered on because of image has "
                            "been tampered with."));
    EXPECT_THAT(stuck.texts("SecureFWVerifySuccess"),
                Contains("Verify RM image successfully."));
    EXPECT_EQ(stuck.trailCount("RM SHA256"), 0) << "RM went past its wait";
    const auto booted = stuck.texts("ResourceEvent.1.2.1.ResourcePoweredOn");
    EXPECT_THAT(booted, Contains(completed("IFWI")));
    EXPECT_THAT(booted, Not(Contains(completed("RM"))));
    for (const char* never :
         {"Set SignalBootStatus",
          "=== end of Secure Boot ===", "Base power good signal asserted"})
    {
        EXPECT_EQ(stuck.trailCount(never), 0) << never;
    }
    EXPECT_EQ(stuck.orvaneProperty("SecureBoot_Status", "Status"),
              "InProgress");
}

} // namespace
} // namespace ubbsim::test
