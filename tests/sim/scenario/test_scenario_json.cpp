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

// The error that parsing a document, or loading a scenario, ends in.
std::string errorOf(const json& document)
{
    try
    {
        (void)parseScenario(document);
    }
    catch (const ScenarioError& error)
    {
        return error.what();
    }
    return "no error";
}

std::string errorLoading(const std::string& name, const std::string& dir = "")
{
    try
    {
        (void)loadScenario(name, dir);
    }
    catch (const ScenarioError& error)
    {
        return error.what();
    }
    return "no error";
}

// The product the daemon's scan reads from a FRU product name: the first
// product of its table whose name stands as a word with blanks around it.
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

// ---- the built-in scenarios -----------------------------------------------

TEST(BuiltinScenarios, AllParse)
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
}

// ---- defaults and overrides -----------------------------------------------

TEST(ScenarioDefaults, EveryProductIsFoundAsItself)
{
    // The default board is no mixed one.
    Scenario plain = parseScenario(json::object());
    EXPECT_EQ(productSeenIn(plain.ubbFru.productName),
              productSeenIn(plain.oams[0].fru.productName));
    // KV20 and KV20X, KV10X and KV10XHF differ only by a suffix: a name
    // that let the scan see the shorter one would make a mixed board.
    for (const std::string& product : knownProducts())
    {
        SCOPED_TRACE(product);
        EXPECT_EQ(productSeenIn(defaultOamFru(product).productName), product);
        EXPECT_EQ(productSeenIn(defaultUbbFru(product).productName), product);
        Scenario scenario = parseScenario({{"oams", {{"product", product}}}});
        EXPECT_EQ(productSeenIn(scenario.oams[3].fru.productName), product);
        EXPECT_EQ(productSeenIn(scenario.ubbFru.productName), product);
    }
}

TEST(ScenarioDefaults, SlotOverridesLayerOnCommonFru)
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
      "ubb": {"product": "KV30", "fru": {"hwDesign": 9}}
    })"));
    EXPECT_TRUE(scenario.oams[0].present);
    EXPECT_FALSE(scenario.oams[1].present);
    EXPECT_EQ(scenario.oams[0].fru.version, "B02");
    EXPECT_EQ(productSeenIn(scenario.oams[0].fru.productName), "KV35");

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
}

TEST(ScenarioFields, FaultsAndActionsTakeTheirValues)
{
    Scenario scenario = parseScenario(json::parse(R"({
      "start": "warm", "baseWasOn": true, "k517": false, "fruValid": false,
      "host": [{"at": 50, "action": "disable"}, {"at": 10, "action": "enable"},
               {"at": 50, "action": "serverReset"}],
      "daemon": [{"at": 60, "action": "restart"}],
      "faults": [
        {"kind": "nack", "bus": 3, "address": "0x56", "at": 5, "until": 7.5},
        {"kind": "efuse", "oam": 6},
        {"kind": "nack", "bus": 5},
        {"kind": "sgpio", "fpga": "smc", "value": "0x41"},
        {"kind": "hotswapNoGood", "count": -1},
        {"kind": "railDrop", "rail": "P3V3_OAM_47", "at": 70}
      ],
      "tools": {"/usr/share/images/rm_recovery.sh": 1},
      "end": 100, "speed": 2.5
    })"));
    EXPECT_EQ(scenario.start, ResetKind::warm);
    EXPECT_TRUE(scenario.baseWasOn);
    EXPECT_FALSE(scenario.k517);
    EXPECT_FALSE(scenario.fruValid);

    // The board plays actions in time order; equal times keep file order.
    ASSERT_EQ(scenario.host.size(), 3U);
    EXPECT_EQ(scenario.host[0].kind, HostAction::Kind::enable);
    EXPECT_EQ(scenario.host[1].kind, HostAction::Kind::disable);
    EXPECT_EQ(scenario.host[2].kind, HostAction::Kind::serverReset);
    ASSERT_EQ(scenario.daemon.size(), 1U);
    EXPECT_EQ(scenario.daemon[0].kind, DaemonAction::Kind::restart);

    ASSERT_EQ(scenario.faults.size(), 6U);
    EXPECT_EQ(scenario.faults[0].bus, 3);
    EXPECT_EQ(scenario.faults[0].address, 0x56);
    EXPECT_EQ(scenario.faults[0].until, 7.5);
    EXPECT_EQ(scenario.faults[1].oam, 6);
    EXPECT_EQ(scenario.faults[1].value, 1);    // a fault needs a nonzero byte
    EXPECT_EQ(scenario.faults[2].address, -1); // every device on bus 5
    EXPECT_FALSE(scenario.faults[2].until.has_value());
    EXPECT_EQ(scenario.faults[3].fpga, "smc");
    EXPECT_EQ(scenario.faults[3].value, 0x41);
    EXPECT_EQ(scenario.faults[3].at, 0);
    EXPECT_EQ(scenario.faults[4].count, -1);
    EXPECT_EQ(scenario.faults[5].rail, "P3V3_OAM_47");
    EXPECT_EQ(scenario.faults[5].at, 70);
    // The k517 rails are rails of their own beside the retimer group's.
    Scenario k517 = parseScenario(json::parse(R"({"faults": [
        {"kind": "railNoPowerGood", "rail": "1V8_RT03_K517"}]})"));
    EXPECT_EQ(k517.faults[0].rail, "1V8_RT03_K517");

    EXPECT_EQ(scenario.toolExit.at("/usr/share/images/rm_recovery.sh"), 1);
    EXPECT_EQ(scenario.end, 100);
    EXPECT_EQ(scenario.speed, 2.5);
}

// ---- errors name the field ------------------------------------------------

struct ErrorCase
{
    const char* document;
    const char* message;
};

class ScenarioErrors : public ::testing::TestWithParam<ErrorCase>
{};

TEST_P(ScenarioErrors, NameTheField)
{
    EXPECT_THAT(errorOf(json::parse(GetParam().document)),
                HasSubstr(GetParam().message));
}

INSTANTIATE_TEST_SUITE_P(
    Keys, ScenarioErrors,
    ::testing::Values(
        ErrorCase{R"({"fautls": []})",
                  R"(unknown field "fautls" (did you mean "faults"?))"},
        ErrorCase{R"({"oams": {"slots": {"3": {"ibcAdress": 16}}}})",
                  R"(oams.slots.3: unknown field "ibcAdress")"},
        ErrorCase{R"([])", "must be an object"}));

INSTANTIATE_TEST_SUITE_P(
    Types, ScenarioErrors,
    ::testing::Values(
        ErrorCase{R"({"k517": "yes"})", "k517: must be true or false"},
        ErrorCase{R"({"faults": {}})", "faults: must be a list"},
        ErrorCase{R"({"host": [{"at": "30", "action": "enable"}]})",
                  "host[0].at: must be a number of seconds >= 0"},
        ErrorCase{R"({"oams": {"present": 3}})",
                  R"(oams.present: must be "all" or a list)"},
        ErrorCase{R"({"oams": {"fru": {"productName": 5}}})",
                  "oams.fru.productName: must be a string or null"},
        ErrorCase{R"({"name": ""})", "name: must not be empty"}));

INSTANTIATE_TEST_SUITE_P(
    Values, ScenarioErrors,
    ::testing::Values(
        ErrorCase{R"({"oams": {"present": [0, 9]}})",
                  "oams.present: OAM index 9 out of range 0..7"},
        ErrorCase{R"({"oams": {"present": [1, 1]}})",
                  "oams.present: OAM index 1 listed twice"},
        ErrorCase{R"({"oams": {"slots": {"8": {}}}})",
                  "oams.slots.8: OAM index 8 out of range 0..7"},
        ErrorCase{R"({"oams": {"slots": {"a": {}}}})",
                  "oams.slots.a: not an OAM index"},
        ErrorCase{R"({"oams": {"slots": {"1": {"ibcAddress": "0x80"}}}})",
                  "oams.slots.1.ibcAddress: must be a number or a \"0x..\""},
        ErrorCase{R"({"oams": {"product": "KV36"}})",
                  R"(oams.product: unknown product "KV36")"},
        ErrorCase{R"({"oams": {"rmDigest": "00ff"}})",
                  "oams.rmDigest: must be a SHA-256 digest"},
        ErrorCase{R"({"oams": {"fru": {"extra": {"BUS": "3"}}}})",
                  "oams.fru.extra.BUS: published by the FRU service"},
        ErrorCase{R"({"oams": {"fru": {"extra": {"A-B": "3"}}}})",
                  "oams.fru.extra.A-B: not a property name"},
        ErrorCase{R"({"start": "hot"})",
                  R"(start: unknown start kind "hot" (one of "cold", "warm"))"},
        ErrorCase{R"({"baseWasOn": true})",
                  R"(baseWasOn: needs "start": "warm")"},
        ErrorCase{
            R"({"host": [{"at": 1, "action": "enabel"}]})",
            R"(host[0].action: unknown action "enabel" (did you mean "enable"?))"},
        ErrorCase{R"({"host": [{"action": "enable"}]})",
                  "host[0].at: required"},
        ErrorCase{R"({"end": 100, "host": [{"at": 1, "action": "enable"},
                      {"at": 130, "action": "disable"}]})",
                  "host[1].at: 130 s is after the end of the run (100 s)"},
        ErrorCase{R"({"tools": {"rm_recovery.sh": 0}})",
                  "tools.rm_recovery.sh: a tool is named by its absolute"},
        ErrorCase{R"({"speed": 0})", "speed: must be a number > 0"}));

INSTANTIATE_TEST_SUITE_P(
    Faults, ScenarioErrors,
    ::testing::Values(
        ErrorCase{R"({"faults": [
                    {"kind": "ctf", "oam": 1, "at": 5},
                    {"kind": "fpgaTimeout", "count": 1},
                    {"kind": "railNoPowerGood", "rail": "VCCINT"}]})",
                  R"(faults[2].rail: unknown rail "VCCINT")"},
        ErrorCase{
            R"({"faults": [{"kind": "railDrop", "rail": "1V8_RT3", "at": 1}]})",
            R"(did you mean "1V8_RT03"?)"},
        ErrorCase{R"({"k517": false, "faults": [
                    {"kind": "railDrop", "rail": "1V8_RT47_K517", "at": 1}]})",
                  R"(faults[0].rail: "1V8_RT47_K517" is not fitted)"},
        ErrorCase{R"({"faults": [{"rail": "VCCINT_FPGA"}]})",
                  "faults[0].kind: required"},
        ErrorCase{R"({"faults": [{"kind": "railFail"}]})",
                  R"(faults[0].kind: unknown fault kind "railFail")"},
        ErrorCase{R"({"faults": [{"kind": "ctf", "at": 5}]})",
                  R"(faults[0].oam: required by fault kind "ctf")"},
        ErrorCase{
            R"({"faults": [{"kind": "ctf", "oam": 1, "at": 5, "line": "X"}]})",
            R"(faults[0].line: not used by fault kind "ctf")"},
        ErrorCase{R"({"faults": [{"kind": "nack", "bus": 3, "address": "0x56",
                                   "at": 10, "until": 5}]})",
                  R"(faults[0].until: must be after "at" (10 s))"},
        ErrorCase{R"({"faults": [{"kind": "nack", "bus": 16, "address": 5}]})",
                  "faults[0].bus: must be an integer 0..15"},
        ErrorCase{R"({"faults": [{"kind": "hotswapNoGood", "count": 0}]})",
                  "faults[0].count: must be -1 (always) or a count"},
        ErrorCase{
            R"({"faults": [{"kind": "efuse", "oam": 2, "value": 0}]})",
            "faults[0].value: must be a number or a \"0x..\" string in 0x01..0xff"},
        ErrorCase{
            R"({"faults": [{"kind": "gpioBusy", "line": "GPU_BASE_PWR"}]})",
            R"(faults[0].line: unknown GPIO line "GPU_BASE_PWR")"},
        ErrorCase{
            R"({"faults": [{"kind": "sgpio", "fpga": "hmc", "value": 1}]})",
            R"(faults[0].fpga: unknown FPGA "hmc")"}));

// ---- files ----------------------------------------------------------------

class ScenarioFiles : public ::testing::Test
{
  protected:
    ScenarioFiles()
    {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "scenario-XXXXXX")
                .string();
        dir = mkdtemp(pattern.data());
    }
    ~ScenarioFiles() override
    {
        std::filesystem::remove_all(dir);
    }

    std::string write(const std::string& name, const std::string& text)
    {
        std::filesystem::path file = dir / name;
        std::ofstream(file) << text;
        return file.string();
    }

    std::filesystem::path dir;
};

TEST_F(ScenarioFiles, PathLoadsAndNameDefaultsToStem)
{
    std::string file = write("my-board.json", R"({"end": 30})");
    Scenario scenario = loadScenario(file, builtinDir);
    EXPECT_EQ(scenario.name, "my-board");
    EXPECT_EQ(scenario.end, 30);

    write("named.json", R"({"name": "other"})");
    EXPECT_EQ(loadScenario((dir / "named.json").string(), "").name, "other");
}

TEST_F(ScenarioFiles, BareNameLooksOnlyInBuiltinDir)
{
    write("local.json", "{}");
    EXPECT_NO_THROW(loadScenario("local", dir.string()));
    const std::string error = errorLoading("nosuch", builtinDir);
    EXPECT_THAT(error, HasSubstr("no built-in scenario \"nosuch\""));
    EXPECT_THAT(error, HasSubstr("nominal"));
}

TEST_F(ScenarioFiles, ErrorsNameTheFile)
{
    std::string broken = write("broken.json", "{\n  \"end\": 30,\n}\n");
    std::string wrong = write("wrong.json", R"({"end": "soon"})");
    std::string missing = (dir / "absent.json").string();
    EXPECT_THAT(errorLoading(broken), HasSubstr(broken + ": "));
    EXPECT_THAT(errorLoading(broken), HasSubstr("line 3"));
    EXPECT_THAT(errorLoading(wrong),
                HasSubstr(wrong + ": end: must be a number of seconds"));
    EXPECT_THAT(errorLoading(missing), HasSubstr(missing + ": cannot be read"));
}

} // namespace
} // namespace ubbsim
