#include "fakes/console_capture.hpp"
#include "fakes/fake_platform.hpp"
#include "vr-service/design_table.hpp"

#include <gmock/gmock.h>

namespace orvane::test
{
namespace
{

using ::testing::HasSubstr;

TEST(DesignTable, LookUpByDesignNumberAndPartNumber)
{
    struct Case
    {
        int kind;
        std::string text;
        int32_t design;
        std::string thermal;
        const char* key; // the key of the line; null: no hit, no line
    };
    // Part numbers of the sample data that comes with the source.
    const Case cases[] = {
        {fruKindOam, "36", 23, "", "36"},
        {fruKindOam, "21", 21, "", "21"},
        {fruKindOam, "9", 0, "", nullptr},
        {fruKindOam, "SMP1-OAM-0005", 1, "NT", "SMP1-OAM-0005"},
        {fruKindOam, "SMP2-OAM-0053", 2, "XT", "SMP2-OAM-0053"},
        {fruKindUbb, "1", 21, "", "21"},
        {fruKindUbb, "9", 29, "", "29"},
        {fruKindUbb, "SMPU-UBB-0000001", 21, "BackToFront", "SMPU-UBB-0000001"},
        {fruKindUbb, "SMPU-UBB-0000044", 21, "FrontToBack", "SMPU-UBB-0000044"},
        // A UBB part number is never a design number: 0 + 20 has no row.
        {fruKindUbb, "SMP1-OAM-0005", 0, "", nullptr},
        {fruKindUbb, "abc", 0, "", nullptr},
        {fruKindUbb, "99999999999999999999999", 0, "", nullptr},
    };
    FakePlatform fake;
    const VrDesignTable table = MakeDesignTable();
    EXPECT_EQ(table.size(), 131U);
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.text);
        FruRecord record;
        record.partNumber = c.text;
        record.hwDesign = 99;
        record.thermalInfo = "old";
        const std::string out =
            console([&] { LookUpDesign(table, record, c.kind); });
        EXPECT_EQ(record.hwDesign, c.design);
        if (c.key == nullptr)
        {
            EXPECT_EQ(out, "");
            EXPECT_EQ(record.thermalInfo, "old");
            continue;
        }
        EXPECT_EQ(record.thermalInfo, c.thermal);
        EXPECT_THAT(out, HasSubstr("Get VRModel: " + std::string(c.key) +
                                   ", VRrev: " + std::to_string(c.design) +
                                   ", Version: " + c.thermal + "\n"));
    }
}

} // namespace
} // namespace orvane::test
