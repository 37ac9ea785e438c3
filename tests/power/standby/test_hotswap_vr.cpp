// Hot-swap SOA and sense set-up, and the regulator address lists.

#include "standby_support.hpp"

#include "orvane/hotswap_setup.hpp"
#include "orvane/power_service.hpp"

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Write = std::pair<uint8_t, std::vector<uint8_t>>;

// The daemon's VR_Info as the sequences read it back.
class VrInfoTest : public ::testing::Test
{
  protected:
    void serve(const std::map<std::string, std::string>& designs)
    {
        for (const auto& [name, design] : designs)
        {
            std::string interface = std::string(vrInfoInterface) + "." + name;
            responder->addProperty(vrInfoPath, interface, "HW_DESIGN", design);
            responder->addProperty(vrInfoPath, interface, "VR_CONFIG_DIR",
                                   "/vr/" + name);
        }
        responder->start();
    }

    void config(const std::string& name, const std::string& json)
    {
        std::filesystem::create_directories(platform::path("/vr/" + name));
        std::ofstream(platform::path("/vr/" + name + "/vr_config.json"))
            << json;
    }

    PrivateBus bus;
    FakePlatform platform;
    std::unique_ptr<BusResponder> responder =
        std::make_unique<BusResponder>("xyz.openbmc_project.Orvane");
};

class HotswapTest : public VrInfoTest
{
  protected:
    void SetUp() override
    {
        // Every rail reads good at once.
        platform.i2c.addDevice(4, 0x25);
        platform.i2c.setRegisters(4, 0x25, 0x01, {0xFF, 0xFF, 0xFF, 0xFF});
        for (uint8_t address : {0x1E, 0x1C, 0x1D, 0x11, 0x13})
        {
            platform.i2c.addDevice(4, address);
            platform.i2c.setRegister(4, address, 0xD1, 0x01);
        }
    }

    std::vector<Write> hotswapWrites()
    {
        std::vector<Write> writes;
        for (const I2cOp& op : platform.i2c.operations(I2cOp::Kind::write))
        {
            if (op.bus == 4 && op.address != 0x25)
            {
                writes.emplace_back(op.address, op.bytes);
            }
        }
        return writes;
    }

    OrvaneSvcState state;
};

TEST_F(HotswapTest, DesignsWithHotswapsGetSoaAndSense)
{
    serve({{"UBB", "25"}});
    EXPECT_NE(Stby_Pwr_on_FpgaRail(state), 0U);
    // The IFX limit keeps its value; OAM45's limit goes to OAM01's device.
    EXPECT_THAT(
        hotswapWrites(),
        ElementsAre(Write{0x1E, {0xD1, 0x01}}, Write{0x1E, {0xD3, 0x0D, 0x08}},
                    Write{0x1C, {0xD1, 0x0B}}, Write{0x1C, {0xD5, 0x67, 0xB4}},
                    Write{0x1D, {0xD1, 0x0B}}, Write{0x1D, {0xD5, 0x67, 0xB4}},
                    Write{0x1C, {0xD1, 0x0B}}, Write{0x11, {0xD5, 0x67, 0xB4}},
                    Write{0x13, {0xD1, 0x0B}},
                    Write{0x13, {0xD5, 0x67, 0xB4}}));
}

TEST_F(HotswapTest, OtherDesignsOnlyGetTheRails)
{
    serve({{"UBB", "24"}});
    EXPECT_NE(Stby_Pwr_on_FpgaRail(state), 0U);
    EXPECT_THAT(hotswapWrites(), IsEmpty());
    EXPECT_EQ(platform.i2c.registerValue(4, 0x25, 0x08), 0x1F);
}

TEST_F(HotswapTest, SoaFailureStopsButSenseFailureDoesNot)
{
    serve({{"UBB", "23"}});
    platform.i2c.removeDevice(4, 0x11);
    std::string out;
    out = console([&] { EXPECT_NE(Stby_Pwr_on_FpgaRail(state), 0U); });
    EXPECT_THAT(out, HasSubstr("Fail to set  0x11 register 0xd5 "));
    EXPECT_EQ(hotswapWrites().back(), (Write{0x13, {0xD5, 0x67, 0xB4}}));

    platform.i2c.clearOperations();
    platform.i2c.removeDevice(4, 0x1D);
    EXPECT_EQ(Stby_Pwr_on_FpgaRail(state), 0U);
    auto unexpected = eventsWithId(platform.zellib, "OrvaneSvcUnexpected");
    ASSERT_THAT(unexpected, SizeIs(1));
    EXPECT_THAT(unexpected[0].message,
                EndsWith("Fail to  set SOA limit on OAM23 UBB HSWAP register "
                         "0xd1."));
    EXPECT_THAT(hotswapWrites(), SizeIs(4)); // nothing after OAM23
}

class VrAddressTest : public VrInfoTest
{
  protected:
    void SetUp() override
    {
        for (auto& tested : vrAddressTested)
        {
            tested = false;
        }
        platform.i2c.addBus(2);
    }

    // Reads of the IBC's register per probed address, in order.
    std::vector<uint8_t> probedAddresses()
    {
        std::vector<uint8_t> addresses;
        for (const I2cOp& op : platform.i2c.operations(I2cOp::Kind::write))
        {
            addresses.push_back(op.address);
        }
        return addresses;
    }
};

const std::string ibcConfig = R"({"VRConfigs": [
    {"SlaveAddress": "0x11", "Model": "IBC1", "Name": "IBC"},
    {"SlaveAddress": "0x44", "Model": "VR1", "Name": "VDDCR"}]})";

TEST_F(VrAddressTest, ListKeepsTheFirstEntryOfEachAddress)
{
    serve({{"UBB", "23"}, {"OAM_4", "7"}});
    config("UBB", R"({"VRConfigs": [
        {"SlaveAddress": "0x40", "Model": "M1", "Name": "VDD"},
        {"SlaveAddress": "40", "Model": "M2", "Name": "VDD_AGAIN"},
        7,
        {"SlaveAddress": "0x41", "Model": "M3"},
        {"SlaveAddress": "0x41", "Model": "M3", "Name": "IBC"}]})");
    std::vector<VrEntry> list;
    EXPECT_TRUE(GetVrAddressList(false, 0, list));
    ASSERT_THAT(list, SizeIs(2));
    EXPECT_EQ(list[0].address, 0x40);
    EXPECT_EQ(list[0].model, "M1");
    EXPECT_EQ(list[1].address, 0x41);
    EXPECT_EQ(list[1].name, "IBC");
    // An IBC of the UBB is never probed.
    EXPECT_THAT(platform.i2c.operations(), IsEmpty());

    std::vector<VrEntry> none;
    std::string out;
    out = console([&] { EXPECT_FALSE(GetVrAddressList(true, 4, none)); });
    EXPECT_THAT(out, HasSubstr("No vr_config.json file found in VR config "
                               "folder \n"));
    config("OAM_4", R"({"VRConfigs": [
        {"SlaveAddress": "zz", "Model": "M", "Name": "N"}]})");
    EXPECT_THROW(GetVrAddressList(true, 4, none), std::invalid_argument);
}

TEST_F(VrAddressTest, OldBomIbcIsFoundOncePerOam)
{
    serve({{"OAM_3", "7"}, {"OAM_4", "14"}, {"OAM_5", "24"}});
    for (const char* oam : {"OAM_3", "OAM_4", "OAM_5"})
    {
        config(oam, ibcConfig);
    }
    platform.i2c.addDevice(2, 0x1F);
    std::vector<VrEntry> list;
    std::string out = console([&] { GetVrAddressList(true, 3, list); });
    ASSERT_THAT(list, SizeIs(2));
    EXPECT_EQ(list[0].address, 0x1F);
    EXPECT_EQ(list[1].address, 0x44);
    EXPECT_THAT(out, HasSubstr("Second alternate I2C address 0x1f for "
                               "OAM_3_IBC is responsive"));
    // Three reads at each address that stays silent, one at the good one.
    EXPECT_THAT(probedAddresses(),
                ElementsAre(0x11, 0x11, 0x11, 0x10, 0x10, 0x10, 0x1F));

    // Tested once per process: the configured address stands again.
    platform.i2c.clearOperations();
    list.clear();
    GetVrAddressList(true, 3, list);
    EXPECT_EQ(list[0].address, 0x11);
    EXPECT_THAT(platform.i2c.operations(), IsEmpty());

    platform.i2c.addDevice(2, 0x11);
    list.clear();
    GetVrAddressList(true, 4, list);
    EXPECT_EQ(list[0].address, 0x11);
    EXPECT_THAT(probedAddresses(), ElementsAre(0x11));

    platform.i2c.clearOperations();
    GetVrAddressList(true, 5, list);
    EXPECT_THAT(platform.i2c.operations(), IsEmpty());
}

TEST_F(VrAddressTest, SilentIbcKeepsItsConfiguredAddress)
{
    serve({{"OAM_3", "14"}});
    config("OAM_3", ibcConfig);
    std::vector<VrEntry> list;
    std::string out;
    out = console([&] { EXPECT_TRUE(GetVrAddressList(true, 3, list)); });
    EXPECT_THAT(out, HasSubstr("I2C address test failed for OAM_3_IBC"));
    ASSERT_THAT(list, SizeIs(2));
    EXPECT_EQ(list[0].address, 0x11);
    EXPECT_THAT(probedAddresses(), SizeIs(9));
}

} // namespace
} // namespace orvane::test
