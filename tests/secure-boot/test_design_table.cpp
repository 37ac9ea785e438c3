#include "fakes/console_capture.hpp"
#include "fakes/fake_platform.hpp"
#include "vr-service/design_table.hpp"

#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

// The part numbers are samples of the data file that comes with the source.
TEST(DesignTable, LookUpByDesignNumberAndPartNumber)
{
    // kind, FRU text, design, thermal, key of the line (empty: no line)
    const std::tuple<int, std::string, int32_t, std::string, std::string>
        cases[] = {
            {fruKindOam, "36", 23, "", "36"},
            {fruKindOam, "21", 21, "", "21"},
            {fruKindOam, "9", 0, "old", ""},
            {fruKindOam, "SMP1-OAM-0005", 1, "NT", "SMP1-OAM-0005"},
            {fruKindOam, "SMP2-OAM-0053", 2, "XT", "SMP2-OAM-0053"},
            {fruKindUbb, "1", 21, "", "21"},
            {fruKindUbb, "SMPU-UBB-0000044", 21, "FrontToBack",
             "SMPU-UBB-0000044"},
            // Not a UBB part number: read as a number, 0 + 20 has no row.
            {fruKindUbb, "SMP1-OAM-0005", 0, "old", ""},
            {fruKindUbb, "abc", 0, "old", ""},
            {fruKindUbb, "99999999999999999999999", 0, "old", ""},
        };
    FakePlatform fake;
    const VrDesignTable table = MakeDesignTable();
    EXPECT_EQ(table.size(), 131U);
    for (const auto& [kind, text, design, thermal, key] : cases)
    {
        FruRecord record;
        record.partNumber = text;
        record.hwDesign = 99;
        record.thermalInfo = "old";
        const std::string out =
            console([&] { LookUpDesign(table, record, kind); });
        EXPECT_EQ(record.hwDesign, design) << text;
        EXPECT_EQ(record.thermalInfo, thermal) << text;
        EXPECT_EQ(out.empty() ? "" : out.substr(out.find("] ") + 2),
                  key.empty() ? ""
                              : "Get VRModel: " + key +
                                    ", VRrev: " + std::to_string(design) +
                                    ", Version: " + thermal + "\n");
    }
}

} // namespace
} // namespace orvane::test
