#include "scenario/scenario_json.hpp"

#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ubbsim
{
namespace
{

using nlohmann::json;
using ::testing::HasSubstr;

const std::string builtinDir = BUILTIN_SCENARIO_DIR;

template <typename Call>
std::string errorOf(Call call)
{
    try
    {
        (void)call();
    }
    catch (const ScenarioError& error)
    {
        return error.what();
    }
    return "no error";
}

// The product the daemon's scan reads from a FRU product name: the first
// of its table that stands as a word with blanks around it.
std::string productSeenIn(const std::string& productName)
{
    for (const std::string& product : knownProducts())
    {
        if (productName.find(" " + product + " ") != std::string::npos)
        {
            return product;
        }
    }
    return "Unknown";
}

TEST(ScenarioFields, FullScenarioLayersSlotsOnCommonValues)
{
    Scenario scenario = parseScenario(json::parse(R"({
      "oams": {
        "present": [0, 2, 3],
        "fru": {"version": "B02", "extra": {"PRODUCT_SERIAL_NUMBER": "S0"}},
        "rmDigest": "0101010101010101010101010101010101010101010101010101010101010101",
        "slots": {
          "2": {"product": "KV30", "ibcAddress": "0x1F", "dacValue": 1540,
                "fru": {"thermal": null, "extra": {"PRODUCT_ASSET_TAG": "T2"}}},
          "3": {"fru": {"present": false}, "rmDigest":
                "ff00000000000000000000000000000000000000000000000000000000000000"}
        }
      },
      "ubb": {"product": "KV30", "fru": {"hwDesign": 9}},
      "host": [{"at": 50, "action": "disable"}, {"at": 10, "action": "enable"},
               {"at": 50, "action": "serverReset"}],
      "faults": [
        {"kind": "nack", "bus": 3, "address": "0x56", "at": 5, "until": 7.5},
        {"kind": "efuse", "oam": 6},
        {"kind": "nack", "bus": 5}
      ],
      "end": 100
    })"));
    EXPECT_FALSE(scenario.oams[1].present);
    EXPECT_EQ(scenario.oams[0].fru.version, "B02");

    const OamSlot& two = scenario.oams[2];
    EXPECT_EQ(productSeenIn(two.fru.productName), "KV30");
    EXPECT_EQ(two.fru.version, "B02");
    EXPECT_EQ(two.fru.thermal, "");
    EXPECT_EQ(two.fru.extra.at("PRODUCT_SERIAL_NUMBER"), "S0");
    EXPECT_EQ(two.fru.extra.at("PRODUCT_ASSET_TAG"), "T2");
    EXPECT_EQ(two.ibcAddress, 0x1F);
    EXPECT_EQ(two.dacValue, 0x0604);
    EXPECT_EQ(two.rmDigest[31], 0x01);
    EXPECT_FALSE(scenario.oams[3].fru.present);
    EXPECT_EQ(scenario.oams[3].rmDigest[0], 0xFF);
    EXPECT_EQ(scenario.oams[3].rmDigest[1], 0x00);
    EXPECT_EQ(productSeenIn(scenario.ubbFru.productName), "KV30");
    EXPECT_EQ(scenario.ubbFru.hwDesign, "9");

    // The board plays actions in time order; equal times keep file order.
    ASSERT_EQ(scenario.host.size(), 3U);
    EXPECT_EQ(scenario.host[0].kind, HostAction::Kind::enable);
    EXPECT_EQ(scenario.host[1].kind, HostAction::Kind::disable);
    EXPECT_EQ(scenario.host[2].kind, HostAction::Kind::serverReset);

    ASSERT_EQ(scenario.faults.size(), 3U);
    EXPECT_EQ(scenario.faults[0].address, 0x56);
    EXPECT_EQ(scenario.faults[0].until, 7.5);
    EXPECT_EQ(scenario.faults[1].value, 1);    // a fault needs a nonzero byte
    EXPECT_EQ(scenario.faults[2].address, -1); // every device on bus 5
    EXPECT_FALSE(scenario.faults[2].until.has_value());

    // Some products differ only by a suffix: a name that let the scan see
    // the shorter one would make a mixed board.
    for (const std::string& product : knownProducts())
    {
        SCOPED_TRACE(product);
        EXPECT_EQ(productSeenIn(defaultOamFru(product).productName), product);
        EXPECT_EQ(productSeenIn(defaultUbbFru(product).productName), product);
        Scenario one = parseScenario({{"oams", {{"product", product}}}});
        EXPECT_EQ(productSeenIn(one.oams[3].fru.productName), product);
        EXPECT_EQ(productSeenIn(one.ubbFru.productName), product);
    }
}

TEST(ScenarioFields, ErotSectionSetsUpBoardImagesAndFaults)
{
    Scenario scenario = parseScenario(json::parse(R"({"erot": {
        "retimers": "dual", "activeSide": "B", "autoArb": true,
        "stagedUbbFpga": ["B"],
        "components": {"UBB_FPGA": {"svn": 3, "minSvn": "0x2",
                                    "keyRevocation": "requested"},
                       "RM": {"manifest": "0xFFFFFFFF"}},
        "persist": {"smcFpgaRecoveryTried": true},
        "images": [{"component": "Retimer_2", "side": "B", "mark": "lowSvn"}],
        "faults": [{"kind": "status", "opcode": "0x02", "value": "0x81",
                    "component": "IFWI", "at": 5, "until": 9},
                   {"kind": "lostReplies", "count": 4}],
        "traceLog": [{"tag": "BPup", "severity": 3}]}})"));
    const ErotScenario& erot = scenario.erot;
    EXPECT_TRUE(erot.dualRetimers);
    EXPECT_EQ(erot.activeSide, 1);
    EXPECT_EQ(erot.stagedUbbFpga, std::vector<int>{1});
    EXPECT_EQ(erot.components.at("UBB_FPGA").minSvn, 2U);
    EXPECT_EQ(erot.components.at("UBB_FPGA").keyRevocation, 1);
    EXPECT_EQ(erot.images.at(0).kind, ErotImageMark::Kind::lowSvn);
    EXPECT_EQ(erot.faults.at(0).opcode, 0x02);
    EXPECT_EQ(erot.faults.at(0).value, 0x81);
    EXPECT_EQ(erot.faults.at(1).opcode, -1);
    EXPECT_EQ(erot.traceLog.at(0).tag, "BPup");
    EXPECT_EQ(erot.components.at("RM").manifest, 0xFFFFFFFFU);
    EXPECT_TRUE(erot.smcFpgaRecoveryTried);
    // A cold start has no finished boot behind it unless said; a warm one
    // has.
    EXPECT_EQ(erot.secureBootFinished, false);
    EXPECT_EQ(parseScenario(json::parse(R"({"start": "warm"})"))
                  .erot.secureBootFinished,
              true);
}

TEST(ScenarioErrors, NameTheField)
{
    // clang-format off
    const std::vector<std::pair<const char*, const char*>> cases = {
        {R"({"erot": {"stagedUbbFpga": ["C"]}})", R"(erot.stagedUbbFpga[0]: unknown side "C")"},
        {R"({"fautls": []})", R"(unknown field "fautls" (did you mean "faults"?))"},
        {R"({"oams": {"slots": {"3": {"ibcAdress": 16}}}})", R"(oams.slots.3: unknown field "ibcAdress")"},
        {R"([])", "must be an object"},
        {R"({"k517": "yes"})", "k517: must be true or false"},
        {R"({"faults": {}})", "faults: must be a list"},
        {R"({"host": [{"at": "30", "action": "enable"}]})", "host[0].at: must be a number of seconds >= 0"},
        {R"({"oams": {"present": 3}})", R"(oams.present: must be "all" or a list)"},
        {R"({"oams": {"fru": {"productName": 5}}})", "oams.fru.productName: must be a string or null"},
        {R"({"name": ""})", "name: must not be empty"},
        {R"({"oams": {"present": [0, 9]}})", "oams.present: OAM index 9 out of range 0..7"},
        {R"({"oams": {"present": [1, 1]}})", "oams.present: OAM index 1 listed twice"},
        {R"({"oams": {"slots": {"8": {}}}})", "oams.slots.8: OAM index 8 out of range 0..7"},
        {R"({"oams": {"slots": {"a": {}}}})", "oams.slots.a: not an OAM index"},
        {R"({"oams": {"rmDigest": "00ff"}})", "oams.rmDigest: must be a SHA-256 digest"},
        {R"({"oams": {"fru": {"extra": {"BUS": "3"}}}})", "oams.fru.extra.BUS: published by the FRU service"},
        {R"({"oams": {"fru": {"extra": {"A-B": "3"}}}})", "oams.fru.extra.A-B: not a property name"},
        {R"({"start": "hot"})", R"(start: unknown start kind "hot" (one of "cold", "warm"))"},
        {R"({"baseWasOn": true})", R"(baseWasOn: needs "start": "warm")"},
        {R"({"host": [{"at": 1, "action": "enabel"}]})", R"(host[0].action: unknown action "enabel" (did you mean "enable"?))"},
        {R"({"host": [{"action": "enable"}]})", "host[0].at: required"},
        {R"({"end": 100, "host": [{"at": 1, "action": "enable"}, {"at": 130, "action": "disable"}]})", "host[1].at: 130 s is after the end of the run (100 s)"},
        {R"({"tools": {"rm_recovery.sh": 0}})", "tools.rm_recovery.sh: a tool is named by its absolute"},
        {R"({"files": {"/a/../../etc/x": ""}})", "files./a/../../etc/x: a file is named by its absolute path"},
        {R"({"speed": 0})", "speed: must be a number > 0"},
        {R"({"faults": [{"kind": "ctf", "oam": 1, "at": 5}, {"kind": "fpgaTimeout", "count": 1}, {"kind": "railNoPowerGood", "rail": "VCCINT"}]})", R"(faults[2].rail: unknown rail "VCCINT")"},
        {R"({"k517": false, "faults": [{"kind": "railDrop", "rail": "1V8_RT47_K517", "at": 1}]})", R"(faults[0].rail: "1V8_RT47_K517" is not fitted)"},
        {R"({"faults": [{"rail": "VCCINT_FPGA"}]})", "faults[0].kind: required"},
        {R"({"faults": [{"kind": "ctf", "at": 5}]})", R"(faults[0].oam: required by fault kind "ctf")"},
        {R"({"faults": [{"kind": "ctf", "oam": 1, "at": 5, "line": "X"}]})", R"(faults[0].line: not used by fault kind "ctf")"},
        {R"({"faults": [{"kind": "nack", "bus": 3, "at": 10, "until": 5}]})", R"(faults[0].until: must be after "at" (10 s))"},
        {R"({"faults": [{"kind": "nack", "bus": 16, "address": 5}]})", "faults[0].bus: must be an integer 0..15"},
        {R"({"faults": [{"kind": "hotswapNoGood", "count": 0}]})", "faults[0].count: must be -1 (always) or a count"},
        {R"({"faults": [{"kind": "efuse", "oam": 2, "value": 0}]})", R"(faults[0].value: must be a number or a "0x.." string in 0x01..0xff)"},
        {R"({"erot": {"faults": [{"kind": "status", "opcode": 3, "value": 1}]}})", "erot.faults[0].opcode: unknown opcode 3"},
        {R"({"erot": {"faults": [{"kind": "lostReplies"}]}})", R"(erot.faults[0].count: required by fault kind "lostReplies")"},
        {R"({"erot": {"faults": [{"kind": "formatVersion", "opcode": 1, "value": 3}]}})", "erot.faults[0].opcode: has no format version in its reply"},
        {R"({"erot": {"retimers": "dual", "images": [{"component": "Retimer", "mark": "tampered"}]}})", R"(erot.images[0].component: "Retimer" has no image)"},
        {R"({"erot": {"images": [{"component": "SMC", "mark": "tampered"}]}})", R"(erot.images[0].component: "SMC" has no signed image on the SMC)"},
        {R"({"erot": {"components": {"UBB_FGPA": {}}}})", R"(did you mean "UBB_FPGA"?)"},
        {R"({"erot": {"components": {"VR": {"svnRevocation": "asked"}}}})", "erot.components.VR.svnRevocation: "},
        {R"({"erot": {"components": {"VR": {"minSvn": 0}}, "images": [{"component": "VR", "mark": "lowSvn"}]}})", R"(erot.images[0].mark: "lowSvn" needs a "minSvn" of 1 or more)"},
        {R"({"erot": {"persist": {"secureBootFinished": 1}}})", "erot.persist.secureBootFinished: must be true or false"},
        {R"({"erot": {"persist": {"copyCompleted": true}}})", R"(erot.persist: unknown field "copyCompleted")"},
        {R"({"erot": {"components": {"RM": {"manifest": -1}}}})", "erot.components.RM.manifest: "},
        {R"({"end": 30, "logNvMount": 31})", "logNvMount: 31 s is after the end of the run"},
        {R"({"vrUpdate": {"oams": {"3": "killed"}}})", R"(vrUpdate.oams.3: must be an exit code 0..255 or "signal")"},
        {R"({"vrUpdate": {"oams": {"9": 0}}})", "vrUpdate.oams.9: OAM index"},
        {R"({"vrUpdate": {"missing": ["/var/lib/images/A/OAMVRx7"]}})", "vrUpdate.missing[0]: must be a folder of a vr-bundle tree"},
        {R"({"vrUpdate": {"ubb": 256}})", "vrUpdate.ubb: "},
        {R"({"clients": [{"at": 5, "busctl": []}]})", "clients[0].busctl: must name a busctl command"},
        {R"({"clients": [{"at": 5, "busctl": ["tree", 3]}]})", "clients[0].busctl[1]: must be a string"},
        {R"({"firmwareCopy": {"inactiveDiffers": ["rm.img"]}})", R"(firmwareCopy.inactiveDiffers[0]: not a file of the image tree: "rm.img")"},
        {R"({"firmwareCopy": {"inactiveDiffers": ["smc.bin"]}})", "firmwareCopy.inactiveDiffers[0]: the SMC's inactive side is its backup flash"},
        {R"({"erot": {"retimers": "dual"}, "firmwareCopy": {"inactiveDiffers": ["retimer.ahdr"]}})", "firmwareCopy.inactiveDiffers[0]: the retimer layout holds no such file"},
        {R"({"firmwareCopy": {"inactiveOnly": ["retimer.bin"]}})", "firmwareCopy.inactiveOnly[0]: must be a retimer file that the layout doesn't carry"},
        {R"({"firmwareCopy": {"eraseFails": "bmc"}})", R"(firmwareCopy.eraseFails: unknown update partition "bmc")"},
    };
    // clang-format on
    for (const auto& [document, message] : cases)
    {
        EXPECT_THAT(
            errorOf([&] { (void)parseScenario(json::parse(document)); }),
            HasSubstr(message))
            << document;
    }
}

TEST(ScenarioFiles, BuiltinsAndPathsLoadAndErrorsNameTheFile)
{
    std::vector<std::string> names = builtinScenarioNames(builtinDir);
    EXPECT_THAT(names, ::testing::Contains("nominal"));
    for (const std::string& name : names)
    {
        SCOPED_TRACE(name);
        Scenario scenario;
        ASSERT_NO_THROW(scenario = loadScenario(name, builtinDir));
        EXPECT_EQ(scenario.name, name);
        EXPECT_FALSE(scenario.description.empty());
    }

    std::string pattern =
        (std::filesystem::temp_directory_path() / "scenario-XXXXXX").string();
    const std::filesystem::path dir = mkdtemp(pattern.data());
    auto write = [&](const std::string& name, const std::string& text) {
        std::ofstream(dir / name) << text;
        return (dir / name).string();
    };
    auto errorLoading = [](const std::string& name,
                           const std::string& from = "") {
        return errorOf([&] { (void)loadScenario(name, from); });
    };

    Scenario stem = loadScenario(write("my-board.json", R"({"end": 30})"), "");
    EXPECT_EQ(stem.name, "my-board");
    EXPECT_EQ(stem.end, 30);
    EXPECT_EQ(
        loadScenario(write("named.json", R"({"name": "other"})"), "").name,
        "other");
    // A bare name is looked for in the built-in directory only.
    write("local.json", "{}");
    EXPECT_NO_THROW(loadScenario("local", dir.string()));
    const std::string unknown = errorLoading("nosuch", builtinDir);
    EXPECT_THAT(unknown, HasSubstr("no built-in scenario \"nosuch\""));
    EXPECT_THAT(unknown, HasSubstr("nominal"));

    std::string broken = write("broken.json", "{\n  \"end\": 30,\n}\n");
    std::string wrong = write("wrong.json", R"({"end": "soon"})");
    std::string missing = (dir / "absent.json").string();
    EXPECT_THAT(errorLoading(broken), HasSubstr(broken + ": "));
    EXPECT_THAT(errorLoading(broken), HasSubstr("line 3"));
    EXPECT_THAT(errorLoading(wrong),
                HasSubstr(wrong + ": end: must be a number of seconds"));
    EXPECT_THAT(errorLoading(missing), HasSubstr(missing + ": cannot be read"));
    std::filesystem::remove_all(dir);
}

} // namespace
} // namespace ubbsim
