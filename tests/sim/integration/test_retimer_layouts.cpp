// The retimer layouts of the storage (one image, two images, the first boot
// after a manual update from one to two), and a regulator update failure
// that leaves the RM waiting: the trail, the tools that ran, the files
// afterwards.

#include "sim_runs.hpp"

#include <regex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

using ::testing::Contains;
using ::testing::ElementsAre;

// The retimer programmings in the order they ran, as "<file> <mux>, ...".
std::string retimerProgrammings(const SimRun& sim)
{
    static const std::regex line(
        R"(retimer-update-secureboot\.sh \S*/(\S+) \S+ (\S+))");
    const std::string tools = slurp(sim.outDir / "root/var/log/tools.log");
    std::string found;
    for (std::sregex_iterator at(tools.begin(), tools.end(), line), end;
         at != end; ++at)
    {
        found +=
            (found.empty() ? "" : ", ") + (*at)[1].str() + " " + (*at)[2].str();
    }
    return found;
}

// The components named `prefix...` whose secure boot completed, in order,
// as "name, ...".
std::string booted(const SimRun& sim, const std::string& prefix)
{
    std::string names;
    for (const json& event : sim.events)
    {
        const std::string name = event.value("args", json::array({""}))[0];
        if (event.value("call", "") == "log" &&
            event.value("id", "") == "ResourceEvent.1.2.1.ResourcePoweredOn" &&
            SimRun::textOf(event).starts_with("The secure boot of") &&
            name.starts_with(prefix))
        {
            names += (names.empty() ? "" : ", ") + name;
        }
    }
    return names;
}

// The first boot after a manual update from one image to two: the single
// pair goes, each image is taken from storage or from its archive,
// programmed once and verified, and the flag is cleared after the second;
// an image in neither place is passed over and the flag stays. With two
// images in storage the single retimer is passed over and the flag changes
// nothing.
TEST(RetimerLayouts, EachLayoutBootsItsOwnRetimerImages)
{
    const std::string flagFile =
        "/var/lib/orvane/retimer_images/enable_manual_retimer_update";
    json firstUpdate = json::parse(
        slurp(fs::path(UBB_SIM_SCENARIOS) / "retimer-first-update.json"));
    firstUpdate["host"] = json::array(); // settled long before base power
    firstUpdate["end"] = 30;
    json half = firstUpdate;
    half["manualRetimer"] = {{"archived", {"Retimer_1"}}};
    json dual = firstUpdate;
    dual.erase("manualRetimer");
    dual["files"] = {{flagFile, "1\n"}};
    struct Case
    {
        const char* name;
        const json& scenario;
        const char* layout;
        const char* programmed;
        const char* retimers; // booted
        const char* flag;
    };
    // clang-format off
    const Case cases[] = {
        {"first-update", firstUpdate, "First update with Dual Retimer SMC", "retimer-1.bin 0x66, retimer-2.bin 0x99", "Retimer_1, Retimer_2", "0\n"},
        {"first-update-half", half, "First update with Dual Retimer SMC", "retimer-1.bin 0x66", "Retimer_1", "1\n"},
        {"dual", dual, "Dual Retimer Config", "", "Retimer_1, Retimer_2", "1\n"},
    };
    // clang-format on
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        SimRun sim =
            run(writeScenario(std::string("retimers-") + c.name, c.scenario));
        EXPECT_EQ(sim.trailCount(std::string("Detected ") + c.layout +
                                 ". Skip BootUp Flow for ComponentID : 1536, "
                                 "ComponentName : Retimer\n"),
                  1);
        EXPECT_EQ(retimerProgrammings(sim), c.programmed);
        EXPECT_EQ(booted(sim, "Retimer"), c.retimers);
        EXPECT_FALSE(
            fs::exists(sim.outDir / "root/var/lib/images/A/retimer.bin"));
        EXPECT_EQ(slurp(sim.outDir / ("root" + flagFile)), c.flag);
        EXPECT_EQ(sim.trailCount("=== end of Secure Boot ==="), 1);
    }
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
    EXPECT_EQ(stuck.trailCount("RM SHA256"), 0);
    EXPECT_EQ(booted(stuck, "IFWI"), "IFWI");
    EXPECT_EQ(booted(stuck, "RM"), "") << "RM went past its wait";
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
