#include "scenario/scenario_json.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ubbsim
{
namespace
{

using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Pair;

TEST(DeviceMarks, NameTheDeviceAndRefuseWhatTheBoardLacks)
{
    Scenario scenario = parseScenario(json::parse(R"({
        "oams": {"present": [0, 1, 2, 3]},
        "devices": {"ubbFpgaFlash": {"B": "erased"},
                    "ifwi": {"3": "tampered"},
                    "retimers": {"0x10": "tampered", "128": "erased"},
                    "stuckRetimers": ["0x02", 64]}})"));
    EXPECT_THAT(scenario.devices.ubbFpgaFlash,
                ElementsAre(Pair(1, DeviceMark::erased)));
    EXPECT_THAT(scenario.devices.ifwi,
                ElementsAre(Pair(3, DeviceMark::tampered)));
    EXPECT_THAT(scenario.devices.retimers,
                ElementsAre(Pair(0x10, DeviceMark::tampered),
                            Pair(0x80, DeviceMark::erased)));
    EXPECT_THAT(scenario.devices.stuckRetimers, ElementsAre(0x02, 0x40));

    const std::vector<std::pair<const char*, const char*>> cases = {
        {R"({"devices": {"flash": {}}})", R"(devices: unknown field "flash")"},
        {R"({"devices": {"ubbFpgaFlash": {"C": "erased"}}})",
         R"(devices.ubbFpgaFlash.C: a flash is named by its side)"},
        {R"({"devices": {"ubbFpgaFlash": {"A": "blank"}}})",
         R"(devices.ubbFpgaFlash.A: unknown device mark "blank")"},
        {R"({"oams": {"present": [0]}, "devices": {"ifwi": {"5": "erased"}}})",
         "devices.ifwi.5: OAM 5 is not fitted"},
        {R"({"devices": {"ifwi": {"9": "erased"}}})",
         "devices.ifwi.9: OAM index 9 out of range 0..7"},
        {R"({"devices": {"retimers": {"0x03": "erased"}}})",
         "devices.retimers.0x03: a retimer is named by its switch value"},
        {R"({"devices": {"retimers": {"0x100": "erased"}}})",
         "devices.retimers.0x100: must be a number"},
        {R"({"devices": {"stuckRetimers": "0x02"}})",
         "devices.stuckRetimers: a list of switch values"},
        {R"({"devices": {"stuckRetimers": ["0x02", "0x06"]}})",
         "devices.stuckRetimers[1]: a retimer is named by its switch value"},
    };
    for (const auto& [document, message] : cases)
    {
        std::string error = "no error";
        try
        {
            (void)parseScenario(json::parse(document));
        }
        catch (const ScenarioError& thrown)
        {
            error = thrown.what();
        }
        EXPECT_THAT(error, HasSubstr(message)) << document;
    }
}

} // namespace
} // namespace ubbsim
