// The tables of the VR update: tool status, design folders, thermal texts,
// configuration version.
#include "vr-service/design_table.hpp"
#include "vr-service/vr_texts.hpp"

#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

TEST(VrTexts, ToolStatusDecoding)
{
    // wait status, result, whether the others go on
    const std::tuple<int, ToolResult, bool> cases[] = {
        {0 << 8, ToolResult::programmed, true},
        {1 << 8, ToolResult::crcsMatch, true},
        {14 << 8, ToolResult::skippedForReset, true},
        {15 << 8, ToolResult::disabled, true},
        {254 << 8, ToolResult::outOfWriteCycles, true},
        {255 << 8, ToolResult::failed, false},
        {2 << 8, ToolResult::unknownError, false},
        {137 << 8, ToolResult::unknownError, false}, // a shell's "killed"
        {9, ToolResult::killed, false},
        {0x80 | 6, ToolResult::killed, false}, // with a core dump
        {-1, ToolResult::killed, false},       // popen failed
    };
    for (const auto& [status, result, goesOn] : cases)
    {
        EXPECT_EQ(DecodeToolStatus(status), result) << status;
        EXPECT_EQ(GoesOn(result), goesOn) << status;
    }
}

TEST(VrTexts, DesignFoldersAndForbiddenPairs)
{
    const std::pair<int32_t, std::string_view> oam[] = {
        {1, "OAMVRx1"},  {7, "OAMVRx7"},   {8, "OAMVRx8"}, {15, "OAMVRx8"},
        {14, "OAMVRxE"}, {16, "OAMVRx10"}, {9, ""},        {0, ""},
        {21, ""},        {-1, ""},
    };
    for (const auto& [design, folder] : oam)
    {
        EXPECT_EQ(OamConfigFolder(design), folder) << design;
    }
    const std::pair<int32_t, std::string_view> ubb[] = {
        {21, "UBBVRx1"}, {24, "UBBVRx4"}, {25, "UBBVRx5"}, {27, "UBBVRx5"},
        {26, "UBBVRx6"}, {29, "UBBVRx6"}, {20, ""},        {0, ""},
        {30, ""},        {7, ""},
    };
    for (const auto& [design, folder] : ubb)
    {
        EXPECT_EQ(UbbConfigFolder(design), folder) << design;
    }
    EXPECT_TRUE(IsForbiddenPair(25, 15));
    EXPECT_TRUE(IsForbiddenPair(26, 16));
    EXPECT_FALSE(IsForbiddenPair(15, 25));
    EXPECT_FALSE(IsForbiddenPair(27, 15));
    EXPECT_FALSE(IsForbiddenPair(25, 8)); // the folder is shared, not the rule
}

TEST(VrTexts, ThermalTranslation)
{
    // kind, value, product name, result
    const std::tuple<int, const char*, const char*, const char*> cases[] = {
        {fruKindUbb, "1", "", "FrontToBack"},
        {fruKindUbb, "2", "", "BackToFront"},
        {fruKindUbb, "3", "", ""},
        {fruKindUbb, "18", "", ""},
        {fruKindOam, "1", "", "NT"},
        {fruKindOam, "18", "", "NT"},
        {fruKindOam, "17", "", "XT"},
        {fruKindOam, "19", "OAM KV35 AC B", "DLC"},
        {fruKindOam, "21", "OAM KV35 AC B", "NT"},
        {fruKindOam, "21", "OAM KV35 LC B", "DLC-NT"},
        {fruKindOam, "20", "OAM KV35 AC", "DLC-XT"}, // no blank after AC
        {fruKindOam, "20", "KV35 AC X", "XT"},
        {fruKindOam, " 1", "", ""},
        {fruKindOam, "", "", ""},
    };
    for (const auto& [kind, value, product, result] : cases)
    {
        EXPECT_EQ(ThermalText(value, product, kind), result)
            << kind << " " << value << " " << product;
    }
    EXPECT_EQ(OamNumberForBus(0), 7);
    EXPECT_EQ(OamNumberForBus(5), 0);
    EXPECT_EQ(OamNumberForBus(1), std::nullopt);
    EXPECT_EQ(OamNumberForBus(14), std::nullopt);
}

TEST(VrTexts, ConfigVersionAndVersionText)
{
    // contents, version (empty: none), whether it is refused as not JSON
    const std::tuple<const char*, const char*, bool> cases[] = {
        {R"({"ConfigVersion": "2.1", "VRConfigs": []})", "2.1", false},
        {R"({"ConfigVersion": 3})", "", false},
        {R"({"VRConfigs": []})", "", false},
        {R"(["ConfigVersion"])", "", false},
        {R"("ConfigVersion")", "", false},
        {R"({"Config)", "", true},
        {"", "", true},
    };
    for (const auto& [contents, version, refused] : cases)
    {
        std::string problem;
        auto found = ConfigVersion(contents, problem);
        EXPECT_EQ(found.value_or(""), version) << contents;
        EXPECT_EQ(!problem.empty(), refused) << contents;
    }
    EXPECT_EQ(VersionText(14, "1.2"), "0e.1.2");
    EXPECT_EQ(VersionText(7, "null"), "07.null");
}

} // namespace
} // namespace orvane::test
