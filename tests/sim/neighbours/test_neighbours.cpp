#include "fakes/bus_fixture.hpp"
#include "neighbours/fru_objects.hpp"
#include "neighbours/neighbours.hpp"
#include "neighbours/object_index.hpp"
#include "scenario/scenario_json.hpp"

#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ubbsim
{
namespace
{

using namespace std::chrono_literals;
using nlohmann::json;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

std::vector<std::string> paths(const SubTree& tree)
{
    std::vector<std::string> found;
    for (const auto& [path, owners] : tree)
    {
        found.push_back(path);
    }
    return found;
}

TEST(FruObjects, AbsentModulesAndFieldsAreNotPublished)
{
    Scenario scenario = parseScenario(json::parse(R"({
      "oams": {"present": [0, 1, 2],
               "fru": {"extra": {"PRODUCT_SERIAL_NUMBER": "S"}},
               "slots": {"1": {"fru": {"present": false}},
                         "2": {"fru": {"thermal": null, "version": null}}}},
      "ubb": {"fru": {"present": false}}
    })"));
    std::vector<FruObject> objects = fruObjects(scenario);
    const std::string root = fruRoot;
    ASSERT_THAT(objects, ElementsAre(Field(&FruObject::path, root + "/OAM_0"),
                                     Field(&FruObject::path, root + "/OAM_2")));
    const FruObject* two = &objects[1];
    EXPECT_FALSE(two->properties.contains("MULTIRECORD_THERMAL_MODEL"));
    EXPECT_FALSE(two->properties.contains("PRODUCT_VERSION"));
    EXPECT_EQ(two->properties.at("PRODUCT_SERIAL_NUMBER"), FruValue("S"));
    EXPECT_EQ(two->properties.at("MULTIRECORD_VR_HW_DESIGN"), FruValue("7"));
}

TEST(ObjectIndex, SubTreeIsBelowThePathToItsDepthAndMatchesAnyInterface)
{
    const std::string fru = "/xyz/openbmc_project/FruDevice";
    const std::string fruIface = "xyz.openbmc_project.FruDevice";
    ObjectIndex index;
    index.add(fru, "fru", {"xyz.openbmc_project.FruDeviceManager"});
    index.add(fru + "/OAM_0", "fru", {fruIface});
    index.add(fru + "/UBB", "fru", {fruIface});
    index.add("/xyz/openbmc_project/FruDeviceExtra/OAM_9", "other", {fruIface});
    index.add("/xyz/openbmc_project/state/chassis0", "chassis",
              {"xyz.openbmc_project.State.Chassis"});
    // One object with two owners, only one of them a FRU.
    index.add(fru + "/UBB", "inventory",
              {"xyz.openbmc_project.Inventory.Item"});

    // The daemon's query: only the owner that implements the interface is
    // named, with all of its interfaces.
    SubTree tree = index.subTree("/", 0, {fruIface});
    EXPECT_THAT(paths(tree),
                ElementsAre(fru + "/OAM_0", fru + "/UBB",
                            "/xyz/openbmc_project/FruDeviceExtra/OAM_9"));
    ASSERT_EQ(tree.at(fru + "/UBB").size(), 1U);
    EXPECT_THAT(tree.at(fru + "/UBB").at("fru"),
                UnorderedElementsAre(fruIface,
                                     "org.freedesktop.DBus.Introspectable",
                                     "org.freedesktop.DBus.Peer",
                                     "org.freedesktop.DBus.Properties"));
    // Any of several interfaces matches, and names only its owner.
    tree = index.subTree("/", 0,
                         {"xyz.openbmc_project.State.Chassis",
                          "xyz.openbmc_project.Inventory.Item"});
    EXPECT_THAT(
        paths(tree),
        ElementsAre(fru + "/UBB", "/xyz/openbmc_project/state/chassis0"));
    EXPECT_TRUE(tree.at(fru + "/UBB").contains("inventory"));
    EXPECT_FALSE(tree.at(fru + "/UBB").contains("fru"));
    EXPECT_THAT(index.subTree("/", 0, {"no.such.Interface"}), IsEmpty());

    // The root itself isn't part of its subtree, nor is a sibling whose
    // name merely starts alike.
    for (const std::string& root : {fru, fru + "/"})
    {
        EXPECT_THAT(paths(index.subTree(root, 0, {})),
                    ElementsAre(fru + "/OAM_0", fru + "/UBB"));
    }
    EXPECT_THAT(index.subTree("/xyz/openbmc_project/Fru", 0, {}), IsEmpty());
    EXPECT_THAT(index.subTree("/nowhere", 0, {}), IsEmpty());
    // Depth counts the levels below the path; 0 and below is no limit.
    EXPECT_THAT(paths(index.subTree("/xyz/openbmc_project", 1, {})),
                ElementsAre(fru));
    EXPECT_EQ(index.subTree("/xyz/openbmc_project", 2, {}).size(), 5U);
    EXPECT_EQ(index.subTree("/", 3, {}).size(), 1U);
    EXPECT_EQ(index.subTree("/", -1, {}).size(), 5U);
}

constexpr const char* managerInterface = "xyz.openbmc_project.FruDeviceManager";
constexpr const char* chassis = "xyz.openbmc_project.State.Chassis";
constexpr const char* chassisPath = "/xyz/openbmc_project/state/chassis0";

// busctl as the daemon's scripts would run it; its output as JSON.
json busctl(const std::string& arguments)
{
    std::string command = "busctl --system --json=short " + arguments;
    FILE* pipe = popen(command.c_str(), "r");
    std::string output;
    char buffer[4096];
    for (size_t got; (got = fread(buffer, 1, sizeof(buffer), pipe)) > 0;)
    {
        output.append(buffer, got);
    }
    EXPECT_EQ(pclose(pipe), 0) << command << "\n" << output;
    return output.empty() ? json() : json::parse(output);
}

class NeighboursTest : public ::testing::Test
{
  protected:
    void startWith(const json& document)
    {
        neighbours = std::make_unique<Neighbours>(parseScenario(document));
        neighbours->start();
        client = sdbus::createSystemBusConnection();
    }

    std::unique_ptr<sdbus::IProxy> proxy(const std::string& service,
                                         const std::string& path)
    {
        return sdbus::createProxy(*client, service, path);
    }

    bool hasOwner(const std::string& name)
    {
        bool owned = false;
        proxy("org.freedesktop.DBus", "/org/freedesktop/DBus")
            ->callMethod("NameHasOwner")
            .onInterface("org.freedesktop.DBus")
            .withArguments(name)
            .storeResultsTo(owned);
        return owned;
    }

    std::vector<std::string> callTexts()
    {
        std::vector<std::string> texts;
        for (const BusCall& call : neighbours->calls())
        {
            texts.push_back(call.text());
        }
        return texts;
    }

    orvane::test::PrivateBus bus;
    std::unique_ptr<Neighbours> neighbours;
    std::unique_ptr<sdbus::IConnection> client;
};

TEST_F(NeighboursTest, AnswerTheDaemonsCallsAndLogThem)
{
    std::string digest(64, '0');
    digest.replace(0, 4, "abcd");
    startWith({{"fruValid", false},
               {"oams",
                {{"product", "KV30"},
                 {"slots",
                  {{"7", {{"fru", {{"version", "B07"}}}}},
                   {"3", {{"rmDigest", digest}}}}}}}});
    json oam = busctl("call xyz.openbmc_project.FruDevice "
                      "/xyz/openbmc_project/FruDevice/OAM_7 "
                      "org.freedesktop.DBus.Properties GetAll s "
                      "xyz.openbmc_project.FruDevice");
    const json& properties = oam["data"][0];
    // Numbers as unsigned, the rest as strings, overrides as given.
    EXPECT_EQ(properties["BUS"], json({{"type", "u"}, {"data", 0}}));
    EXPECT_EQ(properties["MULTIRECORD_VR_HW_DESIGN"],
              json({{"type", "s"}, {"data", "7"}}));
    EXPECT_EQ(properties["PRODUCT_VERSION"]["data"], "B07");
    EXPECT_THAT(properties["PRODUCT_PRODUCT_NAME"]["data"].get<std::string>(),
                HasSubstr(" KV30 "));

    // The product scan runs exactly this command line.
    EXPECT_EQ(std::system("busctl call xyz.openbmc_project.FruDevice "
                          "/xyz/openbmc_project/FruDevice "
                          "xyz.openbmc_project.FruDeviceManager ReScan"),
              0);
    auto manager = proxy("xyz.openbmc_project.FruDevice",
                         "/xyz/openbmc_project/FruDevice");
    manager->callMethod("ReScanBus")
        .onInterface(managerInterface)
        .withArguments(uint8_t{14});
    EXPECT_FALSE(manager->getProperty("FruValid")
                     .onInterface(managerInterface)
                     .get<bool>());
    json managed = busctl("call xyz.openbmc_project.FruDevice / "
                          "org.freedesktop.DBus.ObjectManager "
                          "GetManagedObjects");
    EXPECT_TRUE(
        managed["data"][0].contains("/xyz/openbmc_project/FruDevice/OAM_3"));

    const std::string on = "xyz.openbmc_project.State.Chassis.PowerState.On";
    proxy(chassis, chassisPath)
        ->setProperty("CurrentPowerState")
        .onInterface(chassis)
        .toValue(on);
    EXPECT_EQ(neighbours->chassisPowerState(), on);

    busctl("set-property xyz.openbmc_project.Software.BMC.Updater "
           "/xyz/openbmc_project/software "
           "xyz.openbmc_project.Software.UpdateStatus SMCUpdateOnGoing b true");
    EXPECT_TRUE(neighbours->smcUpdateOnGoing());

    EXPECT_THAT(
        callTexts(),
        ElementsAre("xyz.openbmc_project.FruDevice ReScan()",
                    "xyz.openbmc_project.FruDevice ReScanBus(14)",
                    "xyz.openbmc_project.State.Chassis CurrentPowerState = \"" +
                        on + "\"",
                    "xyz.openbmc_project.Software.BMC.Updater "
                    "SMCUpdateOnGoing = true"));
    EXPECT_FALSE(neighbours->calls()[1].propertyWrite);
    EXPECT_TRUE(neighbours->calls()[2].propertyWrite);

    auto rm = proxy("xyz.openbmc_project.rm", "/xyz/openbmc_project/rm/Ctrl");
    bool status = false;
    const char* rmIntf = "xyz.openbmc_project.rmIntf";
    // Replies are read into a fresh vector each: reading appends.
    auto hashOf = [&](uint32_t oam) {
        std::vector<uint8_t> hash;
        rm->callMethod("GetSHA256HASH")
            .onInterface(rmIntf)
            .withArguments(oam)
            .storeResultsTo(status, hash);
        return hash;
    };

    std::vector<uint8_t> expected(32, 0);
    expected[0] = 0xAB;
    expected[1] = 0xCD;
    EXPECT_EQ(hashOf(3), expected);
    EXPECT_TRUE(status);
    EXPECT_EQ(hashOf(0), std::vector<uint8_t>(32, 0));
    EXPECT_TRUE(hashOf(8).empty());
    EXPECT_FALSE(status);

    rm->callMethod("UpdateAllFuncAreaAddr")
        .onInterface(rmIntf)
        .storeResultsTo(status);
    EXPECT_TRUE(status);
    for (const char* member : {"EnableIBCEfuse", "DisableIBCEfuse"})
    {
        rm->callMethod(member)
            .onInterface(rmIntf)
            .withArguments(uint32_t{5})
            .storeResultsTo(status);
        EXPECT_TRUE(status) << member;
    }
    EXPECT_EQ(neighbours->callCount("GetSHA256HASH"), 3U);
    EXPECT_THAT(callTexts(),
                Contains("xyz.openbmc_project.rm DisableIBCEfuse(5)"));
}

const std::vector<std::string> allNames = {
    "xyz.openbmc_project.FruDevice",
    "xyz.openbmc_project.ObjectMapper",
    "xyz.openbmc_project.State.Chassis",
    "xyz.openbmc_project.Software.BMC.Updater",
    "xyz.openbmc_project.rm",
};

TEST_F(NeighboursTest, TakenNameFailsStartAndStopLetsNamesGoPromptly)
{
    startWith(json::object());
    Neighbours second(parseScenario(json::object()));
    EXPECT_THROW(second.start(), sdbus::Error);
    // The owner keeps serving.
    EXPECT_EQ(neighbours->chassisPowerState(),
              proxy(chassis, chassisPath)
                  ->getProperty("CurrentPowerState")
                  .onInterface(chassis)
                  .get<std::string>());
    for (const std::string& name : allNames)
    {
        EXPECT_TRUE(hasOwner(name)) << name;
    }
    auto begin = std::chrono::steady_clock::now();
    neighbours->stop();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
    for (const std::string& name : allNames)
    {
        EXPECT_FALSE(hasOwner(name)) << name;
    }
    neighbours->stop(); // a second stop is harmless
    neighbours->start();
    EXPECT_TRUE(hasOwner("xyz.openbmc_project.rm"));
    EXPECT_TRUE(neighbours->errors().empty());
}

TEST_F(NeighboursTest, DeadBusEndsLoopsWithoutHanging)
{
    startWith(json::object());
    client.reset();
    bus.kill();
    auto deadline = std::chrono::steady_clock::now() + 5s;
    while (neighbours->errors().size() < allNames.size() &&
           std::chrono::steady_clock::now() < deadline)
    {
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_EQ(neighbours->errors().size(), allNames.size());
    auto begin = std::chrono::steady_clock::now();
    neighbours.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
}

} // namespace
} // namespace ubbsim
