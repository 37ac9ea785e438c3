// The "erot" section of a scenario: what it sets up, and that its mistakes
// name the field.

#include "scenario/scenario_json.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ubbsim
{
namespace
{

using nlohmann::json;
using ::testing::HasSubstr;

std::string errorOf(const json& erot)
{
    try
    {
        parseScenario({{"erot", erot}});
    }
    catch (const ScenarioError& error)
    {
        return error.what();
    }
    return "accepted";
}

TEST(ErotScenario, SectionSetsUpBoardImagesAndFaults)
{
    Scenario scenario = parseScenario(json::parse(R"({"erot": {
        "retimers": "dual", "activeSide": "B", "autoArb": true,
        "components": {"UBB_FPGA": {"svn": 3, "minSvn": "0x2",
                                    "keyRevocation": "requested"}},
        "images": [{"component": "Retimer_2", "side": "B", "mark": "lowSvn"}],
        "faults": [{"kind": "status", "opcode": "0x02", "value": "0x81",
                    "component": "IFWI", "at": 5, "until": 9},
                   {"kind": "lostReplies", "count": 4}],
        "traceLog": [{"tag": "BPup", "severity": 3}]}})"));
    const ErotScenario& erot = scenario.erot;
    EXPECT_TRUE(erot.dualRetimers);
    EXPECT_EQ(erot.activeSide, 1);
    EXPECT_EQ(erot.components.at("UBB_FPGA").minSvn, 2U);
    EXPECT_EQ(erot.components.at("UBB_FPGA").keyRevocation, 1);
    EXPECT_EQ(erot.images.at(0).kind, ErotImageMark::Kind::lowSvn);
    EXPECT_EQ(erot.faults.at(0).opcode, 0x02);
    EXPECT_EQ(erot.faults.at(0).value, 0x81);
    EXPECT_EQ(erot.faults.at(1).opcode, -1);
    EXPECT_EQ(erot.traceLog.at(0).tag, "BPup");
}

TEST(ErotScenario, MistakesNameTheField)
{
    EXPECT_EQ(errorOf({{"faults",
                        {{{"kind", "status"}, {"opcode", 3}, {"value", 1}}}}}),
              "erot.faults[0].opcode: unknown opcode 3");
    EXPECT_EQ(errorOf({{"faults", {{{"kind", "lostReplies"}}}}}),
              "erot.faults[0].count: required by fault kind \"lostReplies\"");
    EXPECT_EQ(
        errorOf({{"faults",
                  {{{"kind", "formatVersion"}, {"opcode", 1}, {"value", 3}}}}}),
        "erot.faults[0].opcode: has no format version in its reply");
    EXPECT_THAT(
        errorOf({{"images", {{{"component", "Retimer"}, {"mark", "tampered"}}}},
                 {"retimers", "dual"}}),
        HasSubstr("erot.images[0].component: \"Retimer\" has no "
                  "image"));
    EXPECT_EQ(
        errorOf({{"images", {{{"component", "SMC"}, {"mark", "tampered"}}}}}),
        "erot.images[0].component: \"SMC\" has no signed image on the "
        "SMC");
    EXPECT_THAT(errorOf({{"components", {{"UBB_FGPA", json::object()}}}}),
                HasSubstr("did you mean \"UBB_FPGA\"?"));
    EXPECT_THAT(
        errorOf({{"components", {{"VR", {{"svnRevocation", "asked"}}}}}}),
        HasSubstr("erot.components.VR.svnRevocation: "));
    EXPECT_EQ(
        errorOf({{"components", {{"VR", {{"minSvn", 0}}}}},
                 {"images", {{{"component", "VR"}, {"mark", "lowSvn"}}}}}),
        "erot.images[0].mark: \"lowSvn\" needs a \"minSvn\" of 1 or "
        "more");
}

} // namespace
} // namespace ubbsim
