#include "base_test_support.hpp"

#include "orvane/base_detail.hpp"
#include "orvane/base_power.hpp"
#include "orvane/oam_presence.hpp"
#include "utils/i2c_ops.hpp"

#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using Host = ubbsim::HostAction::Kind;

constexpr int fpga = 3;
constexpr uint8_t fpgaAddress = 0x56;
constexpr int smc = 4;
constexpr uint8_t smcAddress = 0x25;
constexpr const char* rescan =
    "busctl call xyz.openbmc_project.FruDevice /xyz/openbmc_project/FruDevice "
    "xyz.openbmc_project.FruDeviceManager ReScan";

size_t count(const std::string& text, const std::string& part)
{
    size_t found = 0;
    for (size_t at = text.find(part); at != std::string::npos;
         at = text.find(part, at + 1))
    {
        ++found;
    }
    return found;
}

ubbsim::Scenario enabledAt(double seconds)
{
    ubbsim::Scenario scenario = warmBoard(false);
    hostAt(scenario, seconds, Host::enable);
    return scenario;
}

TEST(BasePowerOn, ReachesEventNineteenAfterTheHostsEnable)
{
    BaseBoard b(enabledAt(5));
    b.standbyState();
    UbbProduct ubb(productKV35);
    const auto marker =
        b.fx.fake.files.resolve("/var/lib/redfish_error_injection_mode");
    std::filesystem::create_directories(marker.parent_path());
    std::ofstream(marker) << "1";
    Console console;

    EXPECT_NE(Base_Pwr_on_Sqnc(b.state), 0U);

    EXPECT_EQ(b.state.sequenceEvent, sequence_event::basePowerOn);
    EXPECT_FALSE(b.state.baseTransition);
    EXPECT_EQ(b.state.oamPresentMask, 0xFF);
    EXPECT_EQ(b.state.moduleGoodMask, 0xFF);
    // The enable, then about nine seconds of fixed pauses.
    EXPECT_GE(b.fx.seconds(), 5.0 + 9.0);
    EXPECT_LT(b.fx.seconds(), 5.0 + 1.0 + 9.5);
    EXPECT_FALSE(std::filesystem::exists(marker));

    EXPECT_EQ(b.read(fpga, fpgaAddress, 0x60), 0xFF); // host power good
    EXPECT_EQ(b.read(fpga, fpgaAddress, 0x62), 0x00); // PERST released
    EXPECT_EQ(b.read(fpga, fpgaAddress, 0x99) & 0x01, 0x01);
    EXPECT_EQ(b.read(fpga, fpgaAddress, 0x98), 0x10); // last retimer
    // Hotswap on, the OAM I2C switch held in reset.
    EXPECT_EQ(b.read(smc, smcAddress, 0x09) & 0x09, 0x01);
    EXPECT_EQ(b.line("GPU_BASE_PWR_GD"), 1);

    EXPECT_THAT(b.published("BasePowerStatus"), ElementsAre("On"));
    EXPECT_THAT(b.published("OAMErrorInjection"), ElementsAre("Disable"));
    EXPECT_THAT(b.fx.fake.shell.commands(),
                ElementsAre(rescan, rescan, rescan));
    auto finished = b.fx.fake.zellib.calls(ZellibCall::Kind::bootTimeFinish);
    ASSERT_THAT(finished, SizeIs(1));
    EXPECT_TRUE(finished[0].flag);
    EXPECT_THAT(b.events("UBB base has powered on",
                         "ResourceEvent.1.2.1.ResourcePoweredOn"),
                SizeIs(1));
    EXPECT_THAT(b.events("OAM base has powered on"), SizeIs(1));
}

TEST(BasePowerOn, UnpluggedBoardWaitsSilentlyForThePlug)
{
    ubbsim::Scenario scenario = enabledAt(1);
    hostAt(scenario, 0, Host::unplug);
    hostAt(scenario, 10, Host::plug);
    BaseBoard b(scenario);
    b.standbyState();
    UbbProduct ubb(productKV35);
    Console console;

    EXPECT_NE(Base_Pwr_on_Sqnc(b.state), 0U);

    EXPECT_GE(b.fx.seconds(), 10.0 + 9.0);
    std::string text = console.text();
    EXPECT_EQ(count(text, "UBB not Plugged into HGX host\n"), 1U);
    EXPECT_EQ(count(text, "UBB will not power on GPUs\n"), 1U);
}

TEST(BasePowerOn, ResequenceAfterAFaultSkipsTheWait)
{
    BaseBoard b(warmBoard(false)); // the host never enables
    b.standbyState();
    b.state.baseDownRequest = true;
    UbbProduct ubb(productKV35);
    Console console;

    EXPECT_NE(Base_Pwr_on_Sqnc(b.state), 0U);
    EXPECT_LT(b.fx.seconds(), 10.0);
    EXPECT_FALSE(b.state.baseDownRequest);
}

TEST(BasePowerOn, NoOamPresentSkipsHotswapAndStillTurnsOn)
{
    ubbsim::Scenario scenario = enabledAt(1);
    for (auto& slot : scenario.oams)
    {
        slot.present = false;
    }
    BaseBoard b(scenario);
    b.standbyState();
    Console console;

    EXPECT_NE(Base_Pwr_on_Sqnc(b.state), 0U);

    EXPECT_EQ(b.state.sequenceEvent, sequence_event::basePowerOn);
    EXPECT_EQ(b.state.oamPresentMask, 0x00);
    EXPECT_EQ(b.read(smc, smcAddress, 0x09) & 0x01, 0x00);
    EXPECT_EQ(b.read(fpga, fpgaAddress, 0x60), 0x00);
    EXPECT_EQ(b.read(fpga, fpgaAddress, 0x62), 0x00);
    EXPECT_THAT(b.published("BasePowerStatus"), ElementsAre("On"));
    EXPECT_THAT(console.text(), HasSubstr("OAM PRSNT not detected"));
}

// Seven OAMs take the 1G way even with an unknown UBB product; eight of a
// known product get its topology.
TEST(BasePowerOn, ExpandersFollowOamCountAndProduct)
{
    for (bool allEight : {true, false})
    {
        ubbsim::Scenario scenario = enabledAt(1);
        scenario.oams[7].present = allEight;
        BaseBoard b(scenario);
        b.standbyState();
        UbbProduct ubb(allEight ? productKV35 : productUnknown);
        Console console;

        ASSERT_NE(Base_Pwr_on_Sqnc(b.state), 0U) << allEight;

        std::vector<uint8_t> linkConfig;
        for (uint8_t reg = 0x08; reg <= 0x0C; ++reg)
        {
            linkConfig.push_back(b.read(14, 0x20, reg));
        }
        const std::vector<uint8_t> expected =
            allEight ? std::vector<uint8_t>{0x63, 0x18, 0xC6, 0x31, 0x8C}
                     : std::vector<uint8_t>(5, 0x00);
        EXPECT_EQ(linkConfig, expected);
        EXPECT_EQ(b.read(14, 0x27, 0x09), allEight ? 0x4C : 0x00);
        EXPECT_EQ(b.state.moduleGoodMask, allEight ? 0xFF : 0x7F);
        EXPECT_EQ(b.read(fpga, fpgaAddress, 0x60), allEight ? 0xFF : 0x7F);
    }
}

TEST(BasePowerOn, UnknownProductWithEightOamsFailsAtTheExpanders)
{
    BaseBoard b(enabledAt(1));
    b.standbyState();
    UbbProduct ubb(productUnknown);
    Console console;

    EXPECT_EQ(Base_Pwr_on_Sqnc(b.state), 0U);

    EXPECT_EQ(b.state.sequenceEvent, sequence_event::beforeHotswap);
    EXPECT_TRUE(b.state.baseTransition); // the monitor stays out
    EXPECT_THAT(b.events("Power Sequence: [Base power-on] Fail to Configure IO "
                         "Expander.",
                         "OrvaneSvcUnexpected"),
                SizeIs(1));
    EXPECT_THAT(b.published("BasePowerStatus"), IsEmpty());
    EXPECT_EQ(b.read(smc, smcAddress, 0x09) & 0x01, 0x00);
}

TEST(BasePowerOn, WarmResetWithPowerGoodOnlyLearnsTheState)
{
    BaseBoard b(warmBoard(true));
    b.state.standbyPowerStatus = true;
    Console console;

    EXPECT_NE(Base_Pwr_on_Sqnc(b.state), 0U);

    EXPECT_EQ(b.state.sequenceEvent, sequence_event::basePowerOn);
    EXPECT_EQ(b.state.oamPresentMask, 0xFF);
    EXPECT_EQ(b.state.moduleGoodMask, 0xFF);
    EXPECT_THAT(b.published("OAMErrorInjection"), ElementsAre("Disable"));
    EXPECT_THAT(b.published("BasePowerStatus"), ElementsAre("On"));
    EXPECT_THAT(b.events("OAM base has powered on"), SizeIs(1));
    EXPECT_THAT(console.text(), Not(HasSubstr("Keep I2C switch under Reset")));
}

// Bit 0 of the RM register is 0 for "enabled". A silent RM reads as
// enabled, so disabling fails on the write that can't reach it.
TEST(ErrorInjection, EveryRmFollowsAndASilentOneFailsTheSet)
{
    for (bool silentRm : {false, true})
    {
        ubbsim::Scenario scenario = warmBoard(false);
        if (silentRm)
        {
            ubbsim::Fault silent;
            silent.kind = "nack";
            silent.bus = 7;
            silent.address = 0x56;
            faultAt(scenario, silent);
        }
        VirtualBoardFixture fx(scenario);
        OrvaneSvcState state;
        Console console;

        EXPECT_EQ(SetOamErrorInjection(state, true), !silentRm);
        EXPECT_EQ(state.oamErrorInjection, !silentRm);
        int event = 0;
        uint8_t value = 0xFF;
        EXPECT_TRUE(ReadOamErrorInjection(&event, 5, value)); // OAM 0
        EXPECT_EQ(value & 0x01, 0);

        EXPECT_EQ(SetOamErrorInjection(state, false), !silentRm);
        EXPECT_FALSE(state.oamErrorInjection);
        EXPECT_EQ(console.text().find("Fail to disable oam error injection") !=
                      std::string::npos,
                  silentRm);
    }
}

// VR fault clearing on a fake bus, with the VR lists read from folders that
// a stand-in of the daemon's service names.
TEST(VrFaultClearing, HotswapsAreClearedOnTheOamsOnly)
{
    FakePlatform fake;
    PrivateBus bus;
    BusResponder service{"xyz.openbmc_project.Orvane"};
    const std::pair<const char*, const char*> configs[] = {
        {"UBB", R"({"VRConfigs": [
            {"SlaveAddress": "0x40", "Model": "MP2975", "Name": "VDD"},
            {"SlaveAddress": "0x1E", "Model": "LM5066I", "Name": "HSC"}]})"},
        {"OAM_3", R"({"VRConfigs": [
            {"SlaveAddress": "0x15", "Model": "XDP710", "Name": "HSC"},
            {"SlaveAddress": "0x44", "Model": "MP2975", "Name": "VR0"}]})"},
    };
    for (const auto& [name, text] : configs)
    {
        const std::string folder = std::string("/vr/") + name;
        auto file = fake.files.resolve(folder + "/vr_config.json");
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file) << text;
        service.addProperty("/xyz/openbmc_project/Orvane/VR_Info",
                            std::string("xyz.openbmc_project.Orvane.VR_Info.") +
                                name,
                            "VR_CONFIG_DIR", folder);
    }
    service.start();
    for (uint8_t address : {0x40, 0x1E})
    {
        fake.i2c.addDevice(4, address);
    }
    for (uint8_t address : {0x70, 0x15, 0x44})
    {
        fake.i2c.addDevice(2, address);
    }
    Console console;

    detail::ClearVrFaults(static_cast<uint8_t>(~0x08)); // OAM 3 alone

    using Send = std::tuple<int, int, int>;
    auto sends = [&fake](I2cOp::Kind kind) {
        std::vector<Send> found;
        for (const I2cOp& op : fake.i2c.operations(kind))
        {
            found.emplace_back(op.bus, op.address, op.command);
        }
        return found;
    };
    EXPECT_THAT(sends(I2cOp::Kind::smbusWriteByteData),
                ElementsAre(Send{4, 0x40, 0x00}, Send{2, 0x44, 0x00}));
    EXPECT_THAT(sends(I2cOp::Kind::smbusWriteByte),
                ElementsAre(Send{4, 0x40, 0x03}, Send{2, 0x70, 0x08},
                            Send{2, 0x15, 0x03}, Send{2, 0x44, 0x03}));
    EXPECT_THAT(console.text(), HasSubstr("Cleared faults at slave addr 0x15"));
}

} // namespace
} // namespace orvane::test
