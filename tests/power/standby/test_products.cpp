// Product names from FRU data and the mixed product check.

#include "standby_support.hpp"

#include "orvane/oam_presence.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using namespace std::chrono_literals;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;

TEST(ProductTest, NamesMatchOnlyAsWholeWords)
{
    EXPECT_EQ(MatchProduct("OAM KV20 AC B"), productKV20);
    EXPECT_EQ(MatchProduct("OAM KV20X AC B"), productKV20X);
    EXPECT_EQ(MatchProduct("OAM KV20DLC B"), productKV20DLC);
    EXPECT_EQ(MatchProduct("OAM KV10XHF A"), productKV10XHF);
    EXPECT_EQ(MatchProduct("UBB KV38 BASEBOARD"), productKV38);
    // No blank behind the name, or none in front of it: no match.
    EXPECT_EQ(MatchProduct("OAM KV20"), productUnknown);
    EXPECT_EQ(MatchProduct("KV35 OAM"), productUnknown);
    EXPECT_EQ(MatchProduct(""), productUnknown);
    // Two names: the one first in the table wins.
    EXPECT_EQ(MatchProduct("X KV35 KV10X Y"), productKV10X);
}

struct MixCase
{
    const char* name;
    std::array<int, 9> products; // OAM_0 to OAM_7, then the UBB
    bool acceptable;
    std::vector<std::string> lines;
    std::vector<std::string> absent;
};

TEST(ProductTest, MixedProductsAreRefused)
{
    constexpr int u = productUnknown;
    constexpr int k30 = productKV30;
    constexpr int k35 = productKV35;
    const std::vector<MixCase> cases{
        {"all unknown",
         {u, u, u, u, u, u, u, u, k35},
         true,
         {"No valid OAM products found (all Unknown)",
          "OAM_7: Product name is Unknown (physical or FRU missing)"},
         {}},
        {"third differs",
         {k35, k35, k30, u, u, u, u, u, k35},
         false,
         {"OAM_2: Mixed OAM is detected.", "OAM_2: Different product with "
                                           "UBB."},
         {"OAM_1: Mixed", "OAM_1: Different"}},
        // The first OAM is not held against the UBB.
        {"UBB differs",
         {k35, k35, k35, k35, k35, k35, k35, k35, k30},
         false,
         {"OAM_1: Different product with UBB.",
          "OAM_7: Different product with UBB."},
         {"OAM_0: Different", "Mixed OAM"}},
        {"one OAM against another UBB",
         {u, u, k35, u, u, u, u, u, k30},
         true,
         {},
         {"Different"}},
    };
    for (const MixCase& c : cases)
    {
        SCOPED_TRACE(c.name);
        FakePlatform platform;
        for (size_t n = 0; n < c.products.size(); ++n)
        {
            productTable[n] = c.products[n];
        }
        bool acceptable = !c.acceptable;
        std::string out = console([&] { acceptable = CheckMixedProducts(); });
        EXPECT_EQ(acceptable, c.acceptable);
        for (const std::string& line : c.lines)
        {
            EXPECT_THAT(out, HasSubstr(line));
        }
        for (const std::string& text : c.absent)
        {
            EXPECT_THAT(out, Not(HasSubstr(text)));
        }
    }
    clearProducts();
}

TEST(ProductTest, ScanGivesUpAfterFiveRoundsWithoutAnOam)
{
    PrivateBus bus;
    auto scenario = VirtualBoardFixture::healthyBoard();
    for (auto& slot : scenario.oams)
    {
        slot.fru.present = false;
    }
    ubbsim::Neighbours neighbours(scenario);
    neighbours.start();
    FakePlatform platform;
    clearProducts();
    OrvaneSvcState state;

    std::string out = console([&] { ScanProducts(state); });

    EXPECT_THAT(platform.shell.commands(), SizeIs(5));
    EXPECT_EQ(platform.clock.slept(), 15s);
    EXPECT_THAT(out, HasSubstr("No OAM FRU found after 5 retries."));
    EXPECT_THAT(out, HasSubstr("FRU product name for UBB: UBB KV35 "
                               "BASEBOARD"));
    EXPECT_EQ(productTable[ubbProductIndex], productKV35);
    EXPECT_EQ(neighbours.callCount("GetSubTree"), 5U);
    clearProducts();
}

} // namespace
} // namespace orvane::test
