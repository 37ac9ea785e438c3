// Auto recovery on the virtual board: a broken image booted from its
// backup, the SMC flipped to its other flash, and the boots that no side
// can serve.

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

constexpr const char* resetNote = "== ubb-sim: SMC reset by the eRoT's system "
                                  "reset; the SMC boots from flash ";

json scenarioFile(const std::string& name)
{
    return json::parse(slurp(fs::path(UBB_SIM_SCENARIOS) / (name + ".json")));
}

json erotState(const SimRun& sim)
{
    return json::parse(slurp(sim.outDir / "erot-state.json"));
}

// Byte 10 of the eRoT's persist record: one failover bit per family.
int failoverBits(const SimRun& sim)
{
    return std::stoi(erotState(sim)["persist"].get<std::string>().substr(20, 2),
                     nullptr, 16);
}

std::string status(const SimRun& sim)
{
    return sim.orvaneProperty("SecureBoot_Status", "Status");
}

// The partition table as the driver printed it last.
std::string lastPartitionTable(const SimRun& sim)
{
    const size_t at = sim.trail.rfind("Current Boot Partition Record:");
    return at == std::string::npos ? "" : sim.trail.substr(at, 1200);
}

int poweredOn(const SimRun& sim, const std::string& name)
{
    const auto texts = sim.texts("ResourceEvent.1.2.1.ResourcePoweredOn");
    return static_cast<int>(std::count(texts.begin(), texts.end(),
                                       "The secure boot of the component " +
                                           name + " is completed."));
}

// A backup of the manifest's version boots in the same run: its partition
// entry turned in memory only, the component counted as recovered before
// and after the copy, which then mends the broken side from the backup.
TEST(Recovery, BackupOfTheManifestsVersionBootsInTheSameRun)
{
    json scenario = scenarioFile("backup-boot");
    SimRun single = run("backup-boot");
    // Any version matches a manifest entry of 0xFFFFFFFF.
    scenario["erot"]["components"] = {{"IFWI", {{"manifest", "0xFFFFFFFF"}}}};
    scenario["erot"]["images"].push_back(
        {{"component", "IFWI"}, {"side", "A"}, {"mark", "tampered"}});
    SimRun multiple = run(writeScenario("backup-boot-two", scenario));
    EXPECT_THAT(multiple.trail, HasSubstr("IFWI BKC VERSION = 0xffffffff"));

    for (const SimRun* sim : {&single, &multiple})
    {
        EXPECT_THAT(sim->console, HasSubstr("0 SMC reset(s); side A active"));
        const auto verified = sim->texts("SecureFWVerifySuccess");
        EXPECT_EQ(std::count(verified.begin(), verified.end(),
                             "Backup image verify OK"),
                  sim == &single ? 1 : 2);
        EXPECT_THAT(lastPartitionTable(*sim),
                    HasSubstr("[Component Id: 0x600, Side: 1]"));
        EXPECT_EQ(poweredOn(*sim, "Retimer"), 1);
        EXPECT_EQ(sim->trailCount("Success to copy from Active to Inactive."),
                  1);
        // The eRoT's own records were never changed.
        EXPECT_EQ(erotState(*sim)["flash"]["activeSide"], 0);
        EXPECT_EQ(failoverBits(*sim), 0);
        const fs::path images = sim->outDir / "root/var/lib/images";
        EXPECT_EQ(slurp(images / "A/retimer.bin"),
                  slurp(images / "B/retimer.bin"));
        // The retimers held the good image all along.
        EXPECT_THAT(slurp(sim->outDir / "root/var/log/tools.log"),
                    Not(HasSubstr("retimer-update")));
    }
    EXPECT_THAT(single.texts("AutomaticRecoveryTriggered"),
                ElementsAre("Component Retimer enters auto recovery mode."));
    EXPECT_EQ(status(single), "SingleDeviceAutorecovery");
    EXPECT_THAT(lastPartitionTable(multiple),
                HasSubstr("[Component Id: 0x500, Side: 1]"));
    EXPECT_EQ(status(multiple), "MultipleDeviceAutorecovery");
}

// A backup of another version sends the SMC to its other flash, once per
// family: the daemon there verifies the component and clears the bit. No
// image that the eRoT refused is programmed on the way.
TEST(Recovery, OtherVersionFlipsTheSmcOnceAndBrokenBoardsHalt)
{
    SimRun flipped = run("failover-flip");
    EXPECT_THAT(flipped.console, HasSubstr("started 2 time(s)"));
    EXPECT_THAT(flipped.console, HasSubstr("1 SMC reset(s); side B active"));
    const size_t flip = flipped.trail.find(
        "Retimer failover flip entry to reset persisting boot logs.");
    const size_t reset = flipped.trail.find(resetNote + std::string("B =="));
    ASSERT_NE(flip, std::string::npos);
    EXPECT_GT(reset, flipped.trail.find("System Power reset.", flip));
    // On flash B the retimer verifies without recovery.
    EXPECT_EQ(flipped.texts("AutomaticRecoveryTriggered").size(), 1U);
    EXPECT_EQ(poweredOn(flipped, "Retimer"), 1);
    EXPECT_EQ(flipped.trailCount("Clear updateOnReboot"), 1);
    EXPECT_EQ(erotState(flipped)["flash"], json({{"activeSide", 1},
                                                 {"pendingSide", 1},
                                                 {"updateOnReboot", false}}));
    EXPECT_EQ(failoverBits(flipped), 0);
    EXPECT_EQ(status(flipped), "Success");

    // Recovery that no side can serve: the component fails and the boot
    // halts, with at most the one flip.
    json scenario = scenarioFile("failover-flip");
    scenario["erot"]["images"].push_back(
        {{"component", "Retimer"}, {"side", "B"}, {"mark", "tampered"}});
    SimRun bothBroken = run(writeScenario("failover-flip-twice", scenario));
    scenario = scenarioFile("backup-boot");
    scenario["erot"]["components"] = {{"Retimer", {{"manifest", 0}}}};
    scenario.erase("host");
    scenario["end"] = 40;
    SimRun noVersion = run(writeScenario("backup-no-manifest", scenario));
    struct Halt
    {
        const SimRun& sim;
        int resets;
        int bits;
        const char* line;
        const char* failure;
    };
    for (const Halt& halt :
         {Halt{bothBroken, 1, 0x02, "Retimer auto-recovery mode entry failure.",
               "Failed to flip to the other side"},
          Halt{noVersion, 0, 0x00, "READ BKC FALSE", "Read BKC false"}})
    {
        SCOPED_TRACE(halt.failure);
        EXPECT_THAT(halt.sim.console,
                    HasSubstr(std::to_string(halt.resets) + " SMC reset(s)"));
        EXPECT_EQ(halt.sim.trailCount(halt.line), 1);
        EXPECT_THAT(halt.sim.texts("AutomaticRecoveryFailureCritical"),
                    ElementsAre(halt.failure));
        EXPECT_THAT(
            halt.sim.texts("ResourceEvent.1.2.1.ResourceSelfTestFailed"),
            Contains("The Retimer can't be powered on because of "
                     "image has been tampered with."));
        EXPECT_EQ(halt.sim.trailCount("=== end of Secure Boot ==="), 0);
        EXPECT_EQ(status(halt.sim), "ManualRecovery");
        EXPECT_EQ(failoverBits(halt.sim), halt.bits);
    }
    for (const SimRun* sim : {&flipped, &bothBroken, &noVersion})
    {
        EXPECT_THAT(slurp(sim->outDir / "root/var/log/tools.log"),
                    Not(HasSubstr("retimer-update")));
    }
}

} // namespace
} // namespace ubbsim::test
