// The OAM and UBB regulator updates, run in the process against the virtual
// board's neighbours (FRU service, object mapper, RM service), its
// simulated root with the bundles and the update tool, on a private bus.
// Each row is a scenario of the virtual board.
#include "fakes/bus_fixture.hpp"
#include "fakes/console_capture.hpp"
#include "neighbours/neighbours.hpp"
#include "run/sim_root.hpp"
#include "scenario/scenario_json.hpp"
#include "utils/critical_section.hpp"
#include "virtual/virtual_machine.hpp"
#include "vr-service/oam_vr_updater.hpp"
#include "vr-service/ubb_vr_updater.hpp"

#include <semaphore.h>

#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* orvanePath = "/xyz/openbmc_project/Orvane";
constexpr const char* vrInfoPath = "/xyz/openbmc_project/Orvane/VR_Info";
constexpr const char* imageVr = "xyz.openbmc_project.Orvane.SecureImageInfo.VR";

std::string vrInfo(const std::string& name)
{
    return "xyz.openbmc_project.Orvane.VR_Info." + name;
}

struct Row
{
    const char* name;
    json scenario;
    uint8_t present; // OAMs that the present register shows
    std::string vrStatus;
    int halts;
    int oamRuns; // update runs of the tool for OAMs
    std::vector<std::string> lines;
    std::vector<std::string> events; // texts of events
    bool oamProgrammed = false;
    size_t rescans = 1; // ReScan calls of the OAM scan
};

class VrUpdateScenario : public BusTest
{
  protected:
    // The daemon's own objects that the updates write.
    BusResponder orvane{"xyz.openbmc_project.Orvane"};
    ubbsim::VirtualShell shell{platform.files.root().string()};
    platform::Platform previous;
    sem_t semaphore{};

    void SetUp() override
    {
        for (int n = 0; n <= 8; ++n)
        {
            const std::string name = n < 8 ? "OAM_" + std::to_string(n) : "UBB";
            for (const char* property :
                 {"HW_DESIGN", "VR_CONFIG_DIR", "VR_CONFIG_VERSION",
                  "THERMAL_INFO", "PART_NUMBER"})
            {
                orvane.addProperty(vrInfoPath, vrInfo(name), property,
                                   std::string());
            }
            orvane.addProperty(orvanePath, imageVr,
                               n < 8 ? "OAM" + std::to_string(n) + "VRVersion"
                                     : "UBBVRVersion",
                               std::string());
        }
        orvane.addProperty(orvanePath, imageVr, "VRStatus", std::string());
        orvane.start();
        platform::Platform seams = platform::current();
        seams.shell = &shell;
        previous = platform::install(seams);
        sem_init(&semaphore, 0, 0);
        EnterBootCriticalSection(&semaphore);
    }
    void TearDown() override
    {
        platform::install(previous);
        sem_destroy(&semaphore);
    }

    void present(uint8_t mask)
    {
        platform.i2c.addBus(3);
        platform.i2c.addDevice(3, 0x56);
        platform.i2c.setRegister(3, 0x56, 0x63, static_cast<uint8_t>(~mask));
    }
    std::string property(const char* path, const std::string& interface,
                         const std::string& name)
    {
        return std::get<std::string>(orvane.property(path, interface, name));
    }
    std::string toolLog()
    {
        std::stringstream text;
        text << std::ifstream(platform.files.root() / "var/log/tools.log")
                    .rdbuf();
        return text.str();
    }
    int halts()
    {
        int value = 0;
        sem_getvalue(&semaphore, &value);
        return value;
    }
};

TEST_F(VrUpdateScenario, UbbThenOamUpdates)
{
    const std::string bundleA = "/var/lib/images/A/vr-bundle/";
    const Row rows[] = {
        {"nominal",
         json::object(),
         0xFF,
         "OK",
         0,
         8,
         {"Found all 8 OAM FRUs", "Enabled Efuse EN and IBC EN successfully",
          "*** OAM 7 All VR CRCs match, no VRs were programmed***",
          "oam vr_status: 0xff\n", "*** End OAM VR Update process ***"},
         {}},
        {"one OAM programmed",
         {{"vrUpdate", {{"oams", {{"3", 0}}}}}},
         0xFF,
         "OK",
         0,
         8,
         {},
         {"VR_3 programming finished.",
          "*** Update OAM 3 FRU successfully.***"},
         true},
        {"out of write cycles on one OAM",
         {{"vrUpdate", {{"oams", {{"2", 254}}}}}},
         0xFF,
         "Failed",
         0,
         8,
         {"oam vr_status: 0x3\n", "oam vr_status: 0xfb\n",
          "*** Failed OAM VR Update : VRStatus - Failed ***"},
         {"*** Update OAM 2 VR OUT OF WRITE CYCLES***",
          "*** Update OAM 2 OUT OF WRITE CYCLES***"}},
        {"tool failure",
         {{"vrUpdate", {{"oams", {{"1", 255}}}}}},
         0xFF,
         "Failed",
         1,
         2,
         {"oam vr_status: 0x1\n"},
         {"*** Update OAM 1 FRU failed.***",
          "System halt and enable FW recovery mode."}},
        {"unknown exit code",
         {{"vrUpdate", {{"oams", {{"0", 7}}}}}},
         0xFF,
         "Failed",
         1,
         1,
         {},
         {"*** Update OAM 0 failed due to  unknown error***",
          "*** Update OAM 0 FRU failed due to  unknown error***"}},
        {"OAM tool killed",
         {{"vrUpdate", {{"oams", {{"0", "signal"}}}}}},
         0xFF,
         "Failed",
         1,
         1,
         {},
         {"*** Update OAM 0 exited abnormally***",
          "*** Update OAM 0 FRU failed abruptly***"}},
        // The UBB's halt lets the boot go on: the OAMs follow.
        {"UBB tool killed",
         {{"vrUpdate", {{"ubb", "signal"}}}},
         0xFF,
         "OK",
         1,
         8,
         {"ubb vr_status: 0x0\n"},
         {"VR_UBB *** Update UBB failed abruptly.***",
          "*** Update UBB FRU failed.***"}},
        {"forbidden pair",
         {{"ubb", {{"fru", {{"hwDesign", "5"}}}}},
          {"oams", {{"present", "all"}, {"fru", {{"hwDesign", "15"}}}}}},
         0xFF,
         "OK",
         1,
         8,
         {"UBB VRrev 25 incompatible with OAM0 VRrev 15"},
         {"VR mismatch between the UBB and OAM_0 secure boot failure"}},
        {"unknown OAM design",
         {{"oams",
           {{"present", "all"},
            {"slots", {{"4", {{"fru", {{"hwDesign", "9"}}}}}}}}}},
         0xFF,
         "Failed",
         1,
         4,
         {"OAM hardware design is unrecognized. Halting system boot for "
          "safety."},
         {"OAM P/N(9),Ver(A01) is not recognized."}},
        {"missing folders",
         {{"vrUpdate",
           {{"missing",
             {bundleA + "OAMVRx7", bundleA + "UBBVRx3",
              "/run/initramfs/ro" + bundleA + "UBBVRx3"}}}}},
         0xFF,
         "OK",
         1,
         8,
         {bundleA +
              "OAMVRx7 not found. Copying the directory from "
              "/run/initramfs/ro" +
              bundleA + "OAMVRx7\n",
          "UBB Rev(23) config file directory " + bundleA +
              "UBBVRx3 not found."},
         {}},
        {"missing FRU record",
         {{"oams",
           {{"present", "all"},
            {"slots", {{"5", {{"fru", {{"present", false}}}}}}}}}},
         0xFF,
         "OK",
         0,
         0,
         {"There should be 8 OAM devices in FRU, but there are only 7",
          "*** Failed OAM VR Update process ***"},
         {},
         false,
         6},
        {"FRU data not valid",
         {{"fruValid", false}},
         0xFF,
         "OK",
         2,
         8,
         {"FRU validation failure"},
         {}},
        {"bad vr_config.json",
         {{"files", {{bundleA + "OAMVRx7/vr_config.json", "{\"Config"}}}},
         0xFF,
         "OK",
         0,
         8,
         {bundleA + "OAMVRx7/vr_config.json is not valid JSON",
          "ConfigVersion not found in vr_config.json"},
         {}},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.name);
        std::filesystem::remove_all(platform.files.root());
        const ubbsim::Scenario scenario = ubbsim::parseScenario(row.scenario);
        ubbsim::prepareRoot(platform.files.root().string(), scenario);
        ubbsim::Neighbours neighbours(scenario);
        neighbours.start();
        present(row.present);
        platform.zellib.clear();
        while (sem_trywait(&semaphore) == 0)
        {}
        EnterBootCriticalSection(&semaphore);

        UbbVrUpdater ubb(&semaphore, false);
        OamVrUpdater oam(&semaphore, false);
        const std::string out = console([&] {
            if (ubb.ScanUbbFru())
            {
                ubb.RunUpdate(0);
            }
            oam.RunUpdate(0);
        });

        EXPECT_EQ(property(orvanePath, imageVr, "VRStatus"), row.vrStatus);
        // Each halt says it leaves; only the first posts.
        EXPECT_EQ(occurrences(out, "*** Leave Boot Critical Section. ***"),
                  row.halts);
        EXPECT_EQ(halts(), std::min(row.halts, 1));
        EXPECT_EQ(occurrences(toolLog(), "vr-update oam "), row.oamRuns);
        EXPECT_EQ(oam.IsProgrammed(), row.oamProgrammed);
        EXPECT_EQ(neighbours.callCount("ReScan"), row.rescans);
        for (const std::string& line : row.lines)
        {
            EXPECT_THAT(out, HasSubstr(line));
        }
        std::string texts;
        for (const auto& call : platform.zellib.calls())
        {
            texts += call.arg1 + "|" + call.message + "\n";
        }
        for (const std::string& text : row.events)
        {
            EXPECT_THAT(texts, HasSubstr(text));
        }
    }
}

// What a healthy run publishes and hands the tool.
TEST_F(VrUpdateScenario, PublishesRecordsAndRunsTheToolPerOam)
{
    const ubbsim::Scenario scenario = ubbsim::parseScenario(
        {{"oams",
          {{"present", "all"},
           {"fru", {{"thermal", "20"}}},
           {"slots", {{"6", {{"fru", {{"hwDesign", "14"}}}}}}}}},
         {"ubb", {{"fru", {{"thermal", "2"}}}}}});
    ubbsim::prepareRoot(platform.files.root().string(), scenario);
    ubbsim::Neighbours neighbours(scenario);
    neighbours.start();
    present(0x7F);

    UbbVrUpdater ubb(&semaphore, false);
    OamVrUpdater oam(&semaphore, true);
    oam.enableVrUpdate = true;
    const std::string out = console([&] {
        ASSERT_TRUE(ubb.ScanUbbFru());
        ubb.RunUpdate(1);
        oam.RunUpdate(1);
        oam.ReportWriteCycles();
    });

    EXPECT_EQ(property(vrInfoPath, vrInfo("UBB"), "HW_DESIGN"), "23");
    EXPECT_EQ(property(vrInfoPath, vrInfo("UBB"), "THERMAL_INFO"),
              "BackToFront");
    EXPECT_EQ(property(orvanePath, imageVr, "UBBVRVersion"), "03.1.0");
    EXPECT_EQ(property(vrInfoPath, vrInfo("OAM_6"), "VR_CONFIG_DIR"),
              "/var/lib/images/B/vr-bundle/OAMVRxE");
    EXPECT_EQ(property(vrInfoPath, vrInfo("OAM_6"), "VR_CONFIG_VERSION"),
              "1.0");
    EXPECT_EQ(property(orvanePath, imageVr, "OAM6VRVersion"), "0e.1.0");
    // KV35 AC products read the liquid-cooled record as the air-cooled one.
    EXPECT_EQ(property(vrInfoPath, vrInfo("OAM_0"), "THERMAL_INFO"), "XT");
    // OAM 7 was fitted after the first look at the present register.
    EXPECT_THAT(out, HasSubstr("*** Failed OAM VR Update : VRStatus - "
                               "Failed ***"));
    // After an SMC reset the tool leaves running OAMs alone, and the update
    // leaves the enables alone.
    EXPECT_EQ(occurrences(out, "VR Update skipped due to SMC reset"), 8U);
    EXPECT_EQ(neighbours.callCount("EnableIBCEfuse"), 0U);
    const std::string root = platform.files.root().string();
    const std::string log = toolLog();
    EXPECT_THAT(log, HasSubstr("/usr/sbin/vr-update ubb 14 " + root +
                               "/var/lib/images/B/vr-bundle/UBBVRx3 false "
                               "false false\n"));
    EXPECT_THAT(log, HasSubstr("/usr/sbin/vr-update oam 6 " + root +
                               "/var/lib/images/B/vr-bundle/OAMVRxE true "
                               "true false\n"));
    EXPECT_THAT(log, HasSubstr("/usr/sbin/vr-update oam 7 " + root +
                               "/var/lib/images/B/vr-bundle/OAMVRx7 false "
                               "false true\n"));
    EXPECT_EQ(neighbours.callCount("ReScanBus"), 1U);
    EXPECT_EQ(neighbours.callCount("ReScan"), 1U);
}

} // namespace
} // namespace orvane::test
