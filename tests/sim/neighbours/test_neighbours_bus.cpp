// The neighbours on a private system bus, asked the way the daemon asks.

#include "fakes/bus_fixture.hpp"
#include "neighbours/neighbours.hpp"
#include "scenario/scenario_json.hpp"

#include <sdbus-c++/sdbus-c++.h>
#include <signal.h>

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
using ::testing::HasSubstr;

using Tree =
    std::map<std::string, std::map<std::string, std::vector<std::string>>>;

constexpr const char* fruService = "xyz.openbmc_project.FruDevice";
constexpr const char* fruInterface = "xyz.openbmc_project.FruDevice";
constexpr const char* managerInterface = "xyz.openbmc_project.FruDeviceManager";

// busctl as the daemon's scripts would run it; its output as JSON.
json busctl(const std::string& arguments)
{
    std::string command = "busctl --system --json=short " + arguments;
    FILE* pipe = popen(command.c_str(), "r");
    std::string output;
    char buffer[4096];
    size_t got = 0;
    while ((got = fread(buffer, 1, sizeof(buffer), pipe)) > 0)
    {
        output.append(buffer, got);
    }
    int status = pclose(pipe);
    EXPECT_EQ(status, 0) << command << "\n" << output;
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

TEST_F(NeighboursTest, GetSubTreeListsPresentFrusFiltered)
{
    startWith({{"oams", {{"present", {0, 1, 2, 3, 4, 5, 6}}}}});
    Tree tree;
    proxy("xyz.openbmc_project.ObjectMapper",
          "/xyz/openbmc_project/object_mapper")
        ->callMethod("GetSubTree")
        .onInterface("xyz.openbmc_project.ObjectMapper")
        .withArguments(std::string("/"), int32_t{0},
                       std::vector<std::string>{fruInterface})
        .storeResultsTo(tree);
    std::vector<std::string> paths;
    for (const auto& [path, owners] : tree)
    {
        paths.push_back(path);
        ASSERT_EQ(owners.size(), 1U) << path;
        EXPECT_THAT(owners.at(fruService), Contains(fruInterface));
    }
    EXPECT_THAT(paths, ElementsAre("/xyz/openbmc_project/FruDevice/OAM_0",
                                   "/xyz/openbmc_project/FruDevice/OAM_1",
                                   "/xyz/openbmc_project/FruDevice/OAM_2",
                                   "/xyz/openbmc_project/FruDevice/OAM_3",
                                   "/xyz/openbmc_project/FruDevice/OAM_4",
                                   "/xyz/openbmc_project/FruDevice/OAM_5",
                                   "/xyz/openbmc_project/FruDevice/OAM_6",
                                   "/xyz/openbmc_project/FruDevice/UBB"));

    // The mapper knows the other neighbours too, but not under this filter.
    json all = busctl("call xyz.openbmc_project.ObjectMapper "
                      "/xyz/openbmc_project/object_mapper "
                      "xyz.openbmc_project.ObjectMapper GetSubTree sias "
                      "/xyz/openbmc_project/state 0 0");
    EXPECT_TRUE(all["data"][0].contains("/xyz/openbmc_project/state/chassis0"));
    EXPECT_EQ(all["data"][0].size(), 1U);
    EXPECT_THAT(callTexts(),
                Contains("xyz.openbmc_project.ObjectMapper GetSubTree(\"/\", "
                         "0, [\"xyz.openbmc_project.FruDevice\"])"));
}

TEST_F(NeighboursTest, FruPropertiesReadBackAsTheDaemonReadsThem)
{
    startWith({{"oams",
                {{"product", "KV30"},
                 {"slots", {{"7", {{"fru", {{"version", "B07"}}}}}}}}}});
    json oam = busctl("call xyz.openbmc_project.FruDevice "
                      "/xyz/openbmc_project/FruDevice/OAM_7 "
                      "org.freedesktop.DBus.Properties GetAll s " +
                      std::string(fruInterface));
    const json& properties = oam["data"][0];
    EXPECT_EQ(properties["BUS"], json({{"type", "u"}, {"data", 0}}));
    EXPECT_EQ(properties["ADDRESS"], json({{"type", "u"}, {"data", 0x50}}));
    EXPECT_EQ(properties["PRODUCT_VERSION"]["data"], "B07");
    EXPECT_EQ(properties["MULTIRECORD_VR_HW_DESIGN"],
              json({{"type", "s"}, {"data", "7"}}));
    EXPECT_THAT(properties["PRODUCT_PRODUCT_NAME"]["data"].get<std::string>(),
                HasSubstr(" KV30 "));
    EXPECT_TRUE(properties.contains("MULTIRECORD_THERMAL_MODEL"));

    auto ubb = [](const std::string& property) {
        return busctl("get-property xyz.openbmc_project.FruDevice "
                      "/xyz/openbmc_project/FruDevice/UBB " +
                      std::string(fruInterface) + " " + property);
    };
    EXPECT_EQ(ubb("BUS"), json({{"type", "u"}, {"data", 14}}));
    EXPECT_EQ(ubb("MULTIRECORD_AIR_FLOW_DIR"),
              json({{"type", "s"}, {"data", "1"}}));
}

TEST_F(NeighboursTest, FruManagerRescansAndReportsValidity)
{
    startWith({{"fruValid", false}});
    // The product scan runs exactly this command line.
    EXPECT_EQ(std::system("busctl call xyz.openbmc_project.FruDevice "
                          "/xyz/openbmc_project/FruDevice "
                          "xyz.openbmc_project.FruDeviceManager ReScan"),
              0);
    auto manager = proxy(fruService, "/xyz/openbmc_project/FruDevice");
    manager->callMethod("ReScanBus")
        .onInterface(managerInterface)
        .withArguments(uint8_t{14});
    EXPECT_FALSE(manager->getProperty("FruValid")
                     .onInterface(managerInterface)
                     .get<bool>());
    EXPECT_THAT(callTexts(),
                ElementsAre("xyz.openbmc_project.FruDevice ReScan()",
                            "xyz.openbmc_project.FruDevice ReScanBus(14)"));

    json managed = busctl("call xyz.openbmc_project.FruDevice / "
                          "org.freedesktop.DBus.ObjectManager "
                          "GetManagedObjects");
    EXPECT_TRUE(
        managed["data"][0].contains("/xyz/openbmc_project/FruDevice/OAM_3"));
}

TEST_F(NeighboursTest, PropertyWritesAreKeptAndLogged)
{
    startWith(json::object());
    const std::string on = "xyz.openbmc_project.State.Chassis.PowerState.On";
    auto chassis = proxy("xyz.openbmc_project.State.Chassis",
                         "/xyz/openbmc_project/state/chassis0");
    EXPECT_EQ(neighbours->chassisPowerState(),
              "xyz.openbmc_project.State.Chassis.PowerState.Off");
    chassis->setProperty("CurrentPowerState")
        .onInterface("xyz.openbmc_project.State.Chassis")
        .toValue(on);
    EXPECT_EQ(neighbours->chassisPowerState(), on);
    EXPECT_EQ(chassis->getProperty("CurrentPowerState")
                  .onInterface("xyz.openbmc_project.State.Chassis")
                  .get<std::string>(),
              on);

    busctl("set-property xyz.openbmc_project.Software.BMC.Updater "
           "/xyz/openbmc_project/software "
           "xyz.openbmc_project.Software.UpdateStatus SMCUpdateOnGoing b true");
    EXPECT_TRUE(neighbours->smcUpdateOnGoing());

    EXPECT_THAT(
        callTexts(),
        ElementsAre("xyz.openbmc_project.State.Chassis CurrentPowerState = \"" +
                        on + "\"",
                    "xyz.openbmc_project.Software.BMC.Updater "
                    "SMCUpdateOnGoing = true"));
    EXPECT_TRUE(neighbours->calls()[0].propertyWrite);
}

TEST_F(NeighboursTest, RmAnswersPerOam)
{
    std::string digest(64, '0');
    digest.replace(0, 4, "abcd");
    startWith({{"oams", {{"slots", {{"3", {{"rmDigest", digest}}}}}}}});
    auto rm = proxy("xyz.openbmc_project.rm", "/xyz/openbmc_project/rm/Ctrl");
    const char* rmInterface = "xyz.openbmc_project.rmIntf";

    bool status = false;
    rm->callMethod("UpdateAllFuncAreaAddr")
        .onInterface(rmInterface)
        .storeResultsTo(status);
    EXPECT_TRUE(status);

    // Replies are read into fresh vectors: reading appends.
    std::vector<uint8_t> hash;
    rm->callMethod("GetSHA256HASH")
        .onInterface(rmInterface)
        .withArguments(uint32_t{3})
        .storeResultsTo(status, hash);
    EXPECT_TRUE(status);
    ASSERT_EQ(hash.size(), 32U);
    EXPECT_EQ(hash[0], 0xAB);
    EXPECT_EQ(hash[1], 0xCD);
    EXPECT_EQ(hash[2], 0x00);

    std::vector<uint8_t> unset;
    rm->callMethod("GetSHA256HASH")
        .onInterface(rmInterface)
        .withArguments(uint32_t{0})
        .storeResultsTo(status, unset);
    EXPECT_EQ(unset, std::vector<uint8_t>(32, 0));
    std::vector<uint8_t> none;
    rm->callMethod("GetSHA256HASH")
        .onInterface(rmInterface)
        .withArguments(uint32_t{8})
        .storeResultsTo(status, none);
    EXPECT_FALSE(status);
    EXPECT_TRUE(none.empty());

    for (const char* member : {"EnableIBCEfuse", "DisableIBCEfuse"})
    {
        rm->callMethod(member)
            .onInterface(rmInterface)
            .withArguments(uint32_t{5})
            .storeResultsTo(status);
        EXPECT_TRUE(status) << member;
    }
    EXPECT_EQ(neighbours->callCount("GetSHA256HASH"), 3U);
    EXPECT_THAT(callTexts(),
                Contains("xyz.openbmc_project.rm DisableIBCEfuse(5)"));
}

// ---- life cycle
// ---------------------------------------------------------------

const std::vector<std::string> allNames = {
    "xyz.openbmc_project.FruDevice",
    "xyz.openbmc_project.ObjectMapper",
    "xyz.openbmc_project.State.Chassis",
    "xyz.openbmc_project.Software.BMC.Updater",
    "xyz.openbmc_project.rm",
};

TEST_F(NeighboursTest, StopLetsNamesGoPromptly)
{
    startWith(json::object());
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

    // And they can serve again.
    neighbours->start();
    EXPECT_TRUE(hasOwner("xyz.openbmc_project.rm"));
    EXPECT_TRUE(neighbours->errors().empty());
}

TEST_F(NeighboursTest, TakenNameFailsStartAndLeavesTheOwnerServing)
{
    startWith(json::object());
    Neighbours second(parseScenario(json::object()));
    EXPECT_THROW(second.start(), sdbus::Error);
    EXPECT_TRUE(hasOwner("xyz.openbmc_project.rm"));
    EXPECT_EQ(neighbours->chassisPowerState(),
              proxy("xyz.openbmc_project.State.Chassis",
                    "/xyz/openbmc_project/state/chassis0")
                  ->getProperty("CurrentPowerState")
                  .onInterface("xyz.openbmc_project.State.Chassis")
                  .get<std::string>());
}

TEST_F(NeighboursTest, DeadBusEndsLoopsWithoutHanging)
{
    startWith(json::object());
    client.reset();
    ASSERT_EQ(kill(bus.pid(), SIGKILL), 0);
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
