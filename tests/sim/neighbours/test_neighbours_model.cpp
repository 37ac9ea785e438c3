// What the neighbours answer, without a bus: the FRU objects a scenario
// gives and the object mapper's subtree search.

#include "neighbours/fru_objects.hpp"
#include "neighbours/object_index.hpp"
#include "scenario/scenario_json.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ubbsim
{
namespace
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

const FruObject* findObject(const std::vector<FruObject>& objects,
                            const std::string& name)
{
    for (const FruObject& object : objects)
    {
        if (object.path == std::string(fruRoot) + "/" + name)
        {
            return &object;
        }
    }
    return nullptr;
}

std::vector<std::string> paths(const SubTree& tree)
{
    std::vector<std::string> found;
    for (const auto& [path, owners] : tree)
    {
        found.push_back(path);
    }
    return found;
}

TEST(FruObjects, OamsSitOnTheirWiredBuses)
{
    std::vector<FruObject> objects =
        fruObjects(parseScenario(nlohmann::json::object()));
    ASSERT_EQ(objects.size(), 9U);
    const std::array<uint32_t, 8> buses = {5, 6, 7, 8, 9, 10, 11, 0};
    for (size_t n = 0; n < buses.size(); ++n)
    {
        const FruObject* oam = findObject(objects, "OAM_" + std::to_string(n));
        ASSERT_NE(oam, nullptr) << n;
        EXPECT_EQ(oam->properties.at("BUS"), FruValue(buses[n])) << n;
        EXPECT_EQ(oam->properties.at("ADDRESS"), FruValue(0x50U));
        EXPECT_TRUE(oam->properties.contains("MULTIRECORD_THERMAL_MODEL"));
        EXPECT_FALSE(oam->properties.contains("MULTIRECORD_AIR_FLOW_DIR"));
    }
    const FruObject* ubb = findObject(objects, "UBB");
    ASSERT_NE(ubb, nullptr);
    EXPECT_EQ(ubb->properties.at("BUS"), FruValue(14U));
    EXPECT_EQ(ubb->properties.at("ADDRESS"), FruValue(0x50U));
    EXPECT_EQ(ubb->properties.at("MULTIRECORD_VR_HW_DESIGN"), FruValue("3"));
    // The daemon reads the air flow only of the FRU on bus 14, 0x50.
    EXPECT_TRUE(ubb->properties.contains("MULTIRECORD_AIR_FLOW_DIR"));
    EXPECT_FALSE(ubb->properties.contains("MULTIRECORD_THERMAL_MODEL"));
}

TEST(FruObjects, AbsentModulesAndFieldsAreNotPublished)
{
    Scenario scenario = parseScenario(nlohmann::json::parse(R"({
      "oams": {"present": [0, 1, 2],
               "fru": {"extra": {"PRODUCT_SERIAL_NUMBER": "S"}},
               "slots": {"1": {"fru": {"present": false}},
                         "2": {"fru": {"thermal": null, "version": null}}}},
      "ubb": {"fru": {"present": false}}
    })"));
    std::vector<FruObject> objects = fruObjects(scenario);
    ASSERT_EQ(objects.size(), 2U);
    EXPECT_NE(findObject(objects, "OAM_0"), nullptr);
    EXPECT_EQ(findObject(objects, "OAM_1"), nullptr);
    EXPECT_EQ(findObject(objects, "UBB"), nullptr);
    const FruObject* two = findObject(objects, "OAM_2");
    ASSERT_NE(two, nullptr);
    EXPECT_FALSE(two->properties.contains("MULTIRECORD_THERMAL_MODEL"));
    EXPECT_FALSE(two->properties.contains("PRODUCT_VERSION"));
    EXPECT_EQ(two->properties.at("PRODUCT_SERIAL_NUMBER"), FruValue("S"));
    EXPECT_EQ(two->properties.at("MULTIRECORD_VR_HW_DESIGN"), FruValue("7"));
}

class ObjectIndexTest : public ::testing::Test
{
  protected:
    ObjectIndexTest()
    {
        index.add("/xyz/openbmc_project/FruDevice", "fru",
                  {"xyz.openbmc_project.FruDeviceManager"});
        index.add("/xyz/openbmc_project/FruDevice/OAM_0", "fru",
                  {"xyz.openbmc_project.FruDevice"});
        index.add("/xyz/openbmc_project/FruDevice/UBB", "fru",
                  {"xyz.openbmc_project.FruDevice"});
        index.add("/xyz/openbmc_project/FruDeviceExtra/OAM_9", "other",
                  {"xyz.openbmc_project.FruDevice"});
        index.add("/xyz/openbmc_project/state/chassis0", "chassis",
                  {"xyz.openbmc_project.State.Chassis"});
        // One object with two owners, only one of them a FRU.
        index.add("/xyz/openbmc_project/FruDevice/UBB", "inventory",
                  {"xyz.openbmc_project.Inventory.Item"});
    }

    ObjectIndex index;
};

TEST_F(ObjectIndexTest, DaemonsQueryFindsOnlyFruObjects)
{
    SubTree tree = index.subTree("/", 0, {"xyz.openbmc_project.FruDevice"});
    EXPECT_THAT(paths(tree),
                ElementsAre("/xyz/openbmc_project/FruDevice/OAM_0",
                            "/xyz/openbmc_project/FruDevice/UBB",
                            "/xyz/openbmc_project/FruDeviceExtra/OAM_9"));
    // Only the owner that implements the interface is named, with all of
    // its interfaces.
    ASSERT_EQ(tree.at("/xyz/openbmc_project/FruDevice/UBB").size(), 1U);
    EXPECT_THAT(tree.at("/xyz/openbmc_project/FruDevice/UBB").at("fru"),
                UnorderedElementsAre("xyz.openbmc_project.FruDevice",
                                     "org.freedesktop.DBus.Introspectable",
                                     "org.freedesktop.DBus.Peer",
                                     "org.freedesktop.DBus.Properties"));
}

TEST_F(ObjectIndexTest, SubtreeIsBelowThePathOnSegmentBoundaries)
{
    // The root itself isn't part of its subtree, and a sibling whose name
    // merely starts alike isn't either.
    EXPECT_THAT(paths(index.subTree("/xyz/openbmc_project/FruDevice", 0, {})),
                ElementsAre("/xyz/openbmc_project/FruDevice/OAM_0",
                            "/xyz/openbmc_project/FruDevice/UBB"));
    EXPECT_THAT(paths(index.subTree("/xyz/openbmc_project/FruDevice/", 0, {})),
                ElementsAre("/xyz/openbmc_project/FruDevice/OAM_0",
                            "/xyz/openbmc_project/FruDevice/UBB"));
    EXPECT_THAT(index.subTree("/xyz/openbmc_project/Fru", 0, {}), IsEmpty());
    EXPECT_THAT(index.subTree("/nowhere", 0, {}), IsEmpty());
}

TEST_F(ObjectIndexTest, DepthCountsLevelsBelowThePath)
{
    EXPECT_THAT(paths(index.subTree("/xyz/openbmc_project", 1, {})),
                ElementsAre("/xyz/openbmc_project/FruDevice"));
    EXPECT_EQ(index.subTree("/xyz/openbmc_project", 2, {}).size(), 5U);
    EXPECT_EQ(index.subTree("/", 3, {}).size(), 1U);
    EXPECT_EQ(index.subTree("/", -1, {}).size(), 5U);
}

TEST_F(ObjectIndexTest, AnyOfSeveralInterfacesMatches)
{
    SubTree tree = index.subTree("/", 0,
                                 {"xyz.openbmc_project.State.Chassis",
                                  "xyz.openbmc_project.Inventory.Item"});
    EXPECT_THAT(paths(tree),
                ElementsAre("/xyz/openbmc_project/FruDevice/UBB",
                            "/xyz/openbmc_project/state/chassis0"));
    EXPECT_TRUE(
        tree.at("/xyz/openbmc_project/FruDevice/UBB").contains("inventory"));
    EXPECT_FALSE(tree.at("/xyz/openbmc_project/FruDevice/UBB").contains("fru"));
    EXPECT_THAT(index.subTree("/", 0, {"no.such.Interface"}), IsEmpty());
}

} // namespace
} // namespace ubbsim
