#include "power_board.hpp"

#include "orvane/dac_check.hpp"
#include "orvane/hotswap_setup.hpp"
#include "orvane/oam_presence.hpp"
#include "orvane/product_scan.hpp"
#include "orvane/standby_power.hpp"
#include "orvane/standby_stage2.hpp"
#include "orvane/vr_address.hpp"
#include "orvane/warm_boot.hpp"
#include "utils/i2c_ops.hpp"

#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using namespace std::chrono_literals;
using namespace ::testing;
using Kind = I2cOp::Kind;
using Write = std::pair<uint8_t, std::vector<uint8_t>>;

class HotswapTest : public VrInfoTest
{
  protected:
    void SetUp() override
    {
        // Every rail reads good at once.
        platform.i2c.setRegisters(4, 0x25, 0x01, {0xFF, 0xFF, 0xFF, 0xFF});
        for (uint8_t address : {0x1E, 0x1C, 0x1D, 0x11, 0x13})
        {
            platform.i2c.setRegister(4, address, 0xD1, 0x01);
        }
    }

    std::vector<Write> hotswapWrites()
    {
        std::vector<Write> writes;
        for (const I2cOp& op : platform.i2c.operations(Kind::write))
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
    std::string out =
        console([&] { EXPECT_NE(Stby_Pwr_on_FpgaRail(state), 0U); });
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
        for (const I2cOp& op : platform.i2c.operations(Kind::write))
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
    std::string out =
        console([&] { EXPECT_FALSE(GetVrAddressList(true, 4, none)); });
    EXPECT_THAT(out, HasSubstr("No vr_config.json file found in VR config "
                               "folder \n"));
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
    std::string out =
        console([&] { EXPECT_TRUE(GetVrAddressList(true, 3, list)); });
    EXPECT_THAT(out, HasSubstr("I2C address test failed for OAM_3_IBC"));
    ASSERT_THAT(list, SizeIs(2));
    EXPECT_EQ(list[0].address, 0x11);
    EXPECT_THAT(probedAddresses(), SizeIs(9));
}

class DacTest : public ::testing::Test
{
  protected:
    // OAMs 1 and 2 in their slots (PRSNT low), both DACs at `setting`.
    void SetUp() override
    {
        platform.i2c.setRegister(3, 0x56, 0x63, 0xF9);
        platform.i2c.addDevice(2, 0x70);
        platform.i2c.addDevice(2, 0x60);
    }

    void dac(uint16_t setting)
    {
        platform.i2c.setRegisters(2, 0x60, 0x60,
                                  {0x00, 0x01, 0x00,
                                   static_cast<uint8_t>(setting & 0xFF),
                                   static_cast<uint8_t>(setting >> 8)});
    }

    FakePlatform platform;
    OrvaneSvcState state;
};

TEST_F(DacTest, EachProductHoldsItsOwnSetting)
{
    struct Case
    {
        int product;
        uint16_t setting;
        std::vector<uint8_t> update; // empty: left alone
    };
    const std::vector<Case> cases{
        {productKV30, 0xE002, {}}, {productKV30, 0x0604, {0x2E, 0x00}},
        {productKV35, 0x0604, {}}, {productKV35, 0xE002, {0x40, 0x60}},
        {productKV38, 0x1234, {}},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(Message() << c.product << " " << c.setting);
        productTable[ubbProductIndex] = c.product;
        platform.i2c.clearOperations();
        dac(c.setting);
        EXPECT_TRUE(CheckDacConfig(state));

        std::vector<uint16_t> muxBytes;
        for (const I2cOp& op : platform.i2c.operations(Kind::smbusWriteByte))
        {
            muxBytes.push_back(op.command);
        }
        EXPECT_THAT(muxBytes, ElementsAre(0x02, 0x04));
        EXPECT_THAT(platform.i2c.operations(Kind::smbusReadBlock), SizeIs(3));
        auto updates = platform.i2c.operations(Kind::smbusWriteBlock);
        if (c.update.empty())
        {
            EXPECT_THAT(updates, IsEmpty());
            continue;
        }
        ASSERT_THAT(updates, SizeIs(2));
        EXPECT_EQ(updates[0].command, 0x60);
        EXPECT_EQ(updates[0].bytes, c.update);
    }
    EXPECT_EQ(platform.i2c.openDescriptors(), 0);
    clearProducts();
}

TEST_F(DacTest, UnreachableDacEndsTheWalkButNotTheCheck)
{
    productTable[ubbProductIndex] = productKV35;
    dac(0xE002);
    platform.i2c.inject({Kind::smbusWriteByte, 2, 0x70, EIO, 1});
    EXPECT_TRUE(CheckDacConfig(state));
    EXPECT_THAT(platform.i2c.operations(Kind::smbusWriteByte), SizeIs(1));
    EXPECT_THAT(platform.i2c.operations(Kind::smbusWriteBlock), IsEmpty());
    EXPECT_EQ(platform.i2c.openDescriptors(), 0);

    // Without the presence reading there is nothing to walk.
    platform.i2c.clearOperations();
    platform.i2c.removeDevice(3, 0x56);
    EXPECT_FALSE(CheckDacConfig(state));
    EXPECT_THAT(platform.i2c.operations(Kind::smbusWriteByte), IsEmpty());
    clearProducts();
}

class WarmBootTest : public ::testing::Test
{
  protected:
    // Register 0x63 reads low for a present OAM; 0xC0 low for a trip.
    void board(uint32_t reason, uint8_t presentN, uint8_t host, uint8_t module,
               uint8_t ctfN)
    {
        platform.devMem.word = reason;
        platform.i2c.setRegisters(3, 0x56, 0x60, {host, module, 0, presentN});
        platform.i2c.setRegister(3, 0x56, 0xC0, ctfN);
    }

    uint32_t check()
    {
        out = console([&] { result = CheckWarmBootPowerGood(state); });
        return result;
    }

    FakePlatform platform;
    OrvaneSvcState state;
    std::string out;
    uint32_t result = 0;
};

// Warm means every fitted OAM (PRSNT low) shows host good, module good and
// no thermal trip (0xC0 low); a cold SMC looks only when its FPGA was
// already configured.
TEST_F(WarmBootTest, EveryFittedOamMustStillBeGood)
{
    struct Case
    {
        uint32_t reason;
        bool configured;
        uint8_t presentN, host, module, ctfN;
        bool warm;
        uint32_t event = sequence_event::none;
    };
    const Case cases[] = {
        {0x2000, false, 0x00, 0xFF, 0xFF, 0xFF, true},
        // Only OAM_3 fitted; empty slots don't count.
        {0x1000, false, 0xF7, 0xF7, 0xFF, 0xFF, false},
        {0x1000, false, 0xF7, 0xFF, 0xF7, 0xFF, false},
        {0x1000, false, 0xF7, 0xFF, 0xFF, 0xF7, false},
        {0x1000, false, 0xF7, 0x08, 0x08, 0x08, true},
        // No OAM: a warm reset is believed until base power was attempted;
        // a cold boot never skips.
        {0x1000, false, 0xFF, 0x00, 0x00, 0xFF, true},
        {0x1000, false, 0xFF, 0x00, 0x00, 0xFF, false, 19},
        {0x0001, true, 0xFF, 0x00, 0x00, 0xFF, false},
        // Cold: not even read unless configured, and then judged as warm.
        {0x0001, false, 0x00, 0xFF, 0xFF, 0xFF, false},
        {0x0001, true, 0x00, 0xFF, 0xFF, 0xFF, true},
        // A configured FPGA before base power: fitted, none good.
        {0x0001, true, 0x00, 0x00, 0x00, 0xFF, false},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(&c - cases);
        platform.i2c.clearOperations();
        state.ubbFpgaConfigured = c.configured;
        state.sequenceEvent = c.event;
        board(c.reason, c.presentN, c.host, c.module, c.ctfN);
        EXPECT_EQ(check() != 0, c.warm);
        // The FPGA keeps its image, so the flag stays set even on failure.
        EXPECT_EQ(state.ubbFpgaConfigured, c.reason != 0x0001 || c.configured);
        const bool looked = c.reason != 0x0001 || c.configured;
        EXPECT_EQ(platform.i2c.operations().empty(), !looked);
        EXPECT_EQ(occurrences(out, "Cold reset detected and UBB FPGA not "
                                   "configured yet"),
                  looked ? 0U : 1U);
    }
    board(0x2000, 0x00, 0xFF, 0xFF, 0xFF);
    check();
    EXPECT_THAT(out, HasSubstr("AST reset reason: 0x2000"));
    EXPECT_THAT(out, HasSubstr("oam_present = 0x0,host_pwrgd = 0xff,"
                               "module_pwrgd = 0xff,OAM_CTF = 0xff"));
}

TEST_F(WarmBootTest, FailedReadNamesItsRegister)
{
    board(0x1000, 0x00, 0xFF, 0xFF, 0xFF);
    platform.i2c.inject({Kind::smbusReadBlock, 3, 0x56});
    EXPECT_EQ(check(), 0U);
    EXPECT_THAT(out, HasSubstr("Fail to read channel 3 slave address 0x56 "
                               "register address 0x63"));
}

TEST_F(WarmBootTest, ResetReasonReportsWhatItGot)
{
    platform.devMem.result = platform::DevMemResult::openFailed;
    platform.devMem.word = 0x1000;
    uint32_t reason = 1;
    std::string text = console([&] { reason = ReadResetReason(); });
    EXPECT_EQ(reason, 0U);
    EXPECT_THAT(text, HasSubstr("Failed to open /dev/mem"));

    platform.devMem.result = platform::DevMemResult::munmapFailed;
    text = console([&] { reason = ReadResetReason(); });
    EXPECT_EQ(reason, 0x1000U);
    EXPECT_THAT(text, HasSubstr("Failed to munmap"));
}

TEST(ProductTest, NamesMatchOnlyAsWholeWords)
{
    EXPECT_EQ(MatchProduct("OAM KV20 AC B"), productKV20);
    EXPECT_EQ(MatchProduct("OAM KV20X AC B"), productKV20X);
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
    // clang-format off
    const std::vector<MixCase> cases{
        {"all unknown", {u, u, u, u, u, u, u, u, k35}, true, {"No valid OAM products found (all Unknown)", "OAM_7: Product name is Unknown (physical or FRU missing)"}, {}},
        {"third differs", {k35, k35, k30, u, u, u, u, u, k35}, false, {"OAM_2: Mixed OAM is detected.", "OAM_2: Different product with UBB."}, {"OAM_1: Mixed", "OAM_1: Different"}},
        {"one OAM against another UBB", {u, u, k35, u, u, u, u, u, k30}, true, {}, {"Different"}},
    };
    // clang-format on
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
    EXPECT_EQ(platform.clock.sleeps(),
              std::vector<std::chrono::nanoseconds>(5, 3s));
    EXPECT_THAT(out, HasSubstr("No OAM FRU found after 5 retries."));
    EXPECT_THAT(out, HasSubstr("FRU product name for UBB: UBB KV35 "
                               "BASEBOARD"));
    EXPECT_EQ(productTable[ubbProductIndex], productKV35);
    EXPECT_EQ(neighbours.callCount("GetSubTree"), 5U);
    clearProducts();
}

const std::string rmRecovery = "/usr/share/images/rm_recovery.sh 2>&1 | tee "
                               "/run/initramfs/log_nv/rm_recovery.log";

ubbsim::Scenario faulty(const std::string& kind, int count,
                        const std::string& rail, int value)
{
    ubbsim::Scenario scenario = withFault(kind);
    scenario.faults.back().count = count;
    scenario.faults.back().rail = rail;
    scenario.faults.back().value = value;
    return scenario;
}

std::string fileText(const std::string& absolute)
{
    std::ifstream file(platform::path(absolute));
    return std::string(std::istreambuf_iterator<char>(file), {});
}

TEST(StandbyBoardTest, ColdBoardComesUpStageByStage)
{
    auto scenario = VirtualBoardFixture::healthyBoard();
    scenario.oams[5].present = false;
    PowerBoard b(scenario);
    bool up = false;
    std::string out = console([&] { up = b.runStandby(); });
    ASSERT_TRUE(up) << out;

    auto summary = b.fx.board->summary();
    EXPECT_EQ(summary[0],
              "standby rails: FPGA on, retimer on, k517 on, OAM on");
    EXPECT_EQ(summary[1], "UBB FPGA: configured, OAM mux released");
    EXPECT_TRUE(b.state.ubbFpgaConfigured);

    // Ready lines low before the SMC FPGA is reprogrammed; the UBB FPGA's
    // flash chosen before its program pulse, which stays low for a second.
    std::vector<std::pair<std::string, int>> levels;
    for (const LineWrite& write : b.gpio.writes)
    {
        levels.emplace_back(write.line, write.value);
    }
    EXPECT_THAT(levels, ElementsAre(std::pair("GPU_BASE_FPGA_READY", 0),
                                    std::pair("GPU_BASE_PWR_GD", 0),
                                    std::pair("GPU_BASE_HMC_READY", 0),
                                    std::pair("SMC_FPGA_PROG_CTRL", 0),
                                    std::pair("SMC_FPGA_PROG_CTRL", 1),
                                    std::pair("SMC_FPGA_PROG_CTRL", 0),
                                    std::pair("GPU_BASE_HMC_READY", 1),
                                    std::pair("SMC_UBB_FLASH_AB_SEL", 0),
                                    std::pair("SMC_UBB_FPGA_SPI_SEL", 0),
                                    std::pair("UBB_FPGA_PROG_B", 0),
                                    std::pair("UBB_FPGA_PROG_B", 1),
                                    std::pair("GPU_BASE_FPGA_READY", 1)));
    EXPECT_GE(b.gpio.writes[10].at - b.gpio.writes[9].at, 1000ms);

    EXPECT_THAT(b.published("StandbyPowerStatus"), ElementsAre("Off", "On"));
    EXPECT_THAT(b.published("UBBFPGAStatus"), ElementsAre("False", "False"));
    EXPECT_THAT(b.published("SMCFPGAStatus"), IsEmpty());

    for (size_t n = 0; n < 8; ++n)
    {
        EXPECT_EQ(productTable[n], n == 5 ? productUnknown : productKV35) << n;
    }
    EXPECT_EQ(productTable[ubbProductIndex], productKV35);
    EXPECT_THAT(b.fx.fake.shell.commands(), Contains(rescan));
    EXPECT_THAT(out, HasSubstr("No mixed OAM or UBB found."));

    EXPECT_EQ(fileText("/run/oam/oamcount"), "7\n");
    EXPECT_EQ(fileText("/run/oam/oammask"), "df\n");
    EXPECT_TRUE(
        std::filesystem::exists(platform::path("/run/oam/oampresent/4")));
    EXPECT_FALSE(
        std::filesystem::exists(platform::path("/run/oam/oampresent/5")));

    auto missing =
        eventsWithId(b.fx.fake.zellib, "Base.1.8.1.ResourceNotFound");
    ASSERT_THAT(missing, SizeIs(1));
    EXPECT_EQ(missing[0].arg1, "GPU,OAM_5");
    EXPECT_EQ(missing[0].level, 2);
    EXPECT_THAT(missing[0].message, EndsWith("OAM5 physically missing."));

    auto poweredOn =
        eventsWithId(b.fx.fake.zellib, "ResourceEvent.1.2.1.ResourcePoweredOn");
    ASSERT_THAT(poweredOn, SizeIs(2));
    EXPECT_EQ(poweredOn[0].arg1, "UBB standby");
    EXPECT_EQ(poweredOn[1].arg1, "OAM standby");
}

TEST(StandbyBoardTest, FpgaActivationTimeoutIsRetriedOnce)
{
    for (int timeouts : {1, 2})
    {
        SCOPED_TRACE(timeouts);
        PowerBoard b(faulty("fpgaTimeout", timeouts, "", 0));
        ASSERT_NE(Stby_Pwr_on_Sqnc_1(b.state), 0U);
        ASSERT_NE(Stby_Pwr_on_FpgaRail(b.state), 0U);
        double start = b.fx.seconds();
        uint32_t result = 0;
        std::string out = console(
            [&] { result = Stby_Pwr_on_Sqnc_2_PreRetimer(b.state, 1); });

        auto& zellib = b.fx.fake.zellib;
        auto first = eventsWithId(zellib, "FPGAActivationTimeout");
        ASSERT_THAT(first, SizeIs(1));
        EXPECT_EQ(first[0].level, 4);
        EXPECT_THAT(out, HasSubstr("Retry UBB FPGA configuration."));
        // Each lost attempt waits out its 1000 + 100 ms and 15 s of polls.
        EXPECT_GT(b.fx.seconds() - start, 16.1 * timeouts);
        EXPECT_EQ(b.gpio.writes[7].line, "SMC_UBB_FLASH_AB_SEL");
        EXPECT_EQ(b.gpio.writes[7].value, 1);
        auto inARow = eventsWithId(zellib, "FPGAActivationTimeoutInARow");
        if (timeouts == 1)
        {
            EXPECT_NE(result, 0U);
            EXPECT_TRUE(b.state.ubbFpgaConfigured);
            EXPECT_THAT(inARow, IsEmpty());
            continue;
        }
        EXPECT_EQ(result, 0U);
        EXPECT_FALSE(b.state.ubbFpgaConfigured);
        ASSERT_THAT(inARow, SizeIs(1));
        EXPECT_EQ(inARow[0].level, 2);
        EXPECT_THAT(out, HasSubstr("Fail to configure UBB FPGA"));
        EXPECT_THAT(out, HasSubstr("UBB FPGA configed fail"));
        EXPECT_THAT(b.fx.board->summary()[0], HasSubstr("k517 off"));
    }
}

TEST(StandbyBoardTest, OamRailWithoutPowerGoodStopsStageTwo)
{
    PowerBoard b(faulty("railNoPowerGood", -1, "P3V3_OAM_47", 0));
    ASSERT_TRUE(b.runToStage2());
    EXPECT_EQ(Stby_Pwr_on_Sqnc_2(b.state), 0U);

    auto unexpected = eventsWithId(b.fx.fake.zellib, "OrvaneSvcUnexpected");
    ASSERT_THAT(unexpected, SizeIs(1));
    EXPECT_THAT(unexpected[0].message,
                EndsWith("Power Sequence: [Standby power-on] oam rail fail."));
    EXPECT_EQ(b.state.sequenceEvent, 13U);
    // Products are only asked for once the OAMs have standby power.
    EXPECT_THAT(b.fx.fake.shell.commands(), Not(Contains(rescan)));
}

TEST(StandbyBoardTest, MisconfiguredEmc1438IsReportedAndStandbyGoesOn)
{
    PowerBoard b(faulty("emcMisconfig", -1, "", 0x0C));
    ASSERT_TRUE(b.runToStage2());
    EXPECT_NE(b.run(Stby_Pwr_on_Sqnc_2), 0U);

    auto emc = b.fx.fake.zellib.calls(ZellibCall::Kind::i2cLog);
    ASSERT_THAT(emc, SizeIs(1));
    EXPECT_EQ(emc[0].message,
              "Power Sequence Standby Power On: Fail to enable EMC1438");
    const I2CLogData& record = *emc[0].i2c;
    EXPECT_EQ(std::tuple(emc[0].level, record.otherFailure, record.bus,
                         record.address, record.reg),
              std::tuple(2, true, 14, 0x4C, 0x3B));
    EXPECT_THAT(b.out, HasSubstr("Enable EMC1438 external diode channels by "
                                 "Channel Configuration Register 0x3B."));
}

TEST(StandbyBoardTest, RmRecoveryMarkersCountOnlyAfterAGoodScript)
{
    for (int status : {0, 256})
    {
        SCOPED_TRACE(status);
        PowerBoard b;
        b.fx.fake.shell.statusFor[rmRecovery] = status;
        std::filesystem::create_directories(platform::path("/tmp"));
        std::ofstream(platform::path("/tmp/2.rm_recovered")).close();
        std::ofstream(platform::path("/tmp/5.rm_unrecovered")).close();
        ASSERT_TRUE(b.runToStage2());
        EXPECT_NE(b.run(Stby_Pwr_on_Sqnc_2), 0U);

        EXPECT_THAT(b.fx.fake.shell.commands(), Contains(rmRecovery));
        auto triggered =
            eventsWithId(b.fx.fake.zellib, "AutomaticRecoveryTriggered");
        auto critical =
            eventsWithId(b.fx.fake.zellib, "AutomaticRecoveryFailureCritical");
        if (status != 0)
        {
            EXPECT_THAT(b.out, HasSubstr("RM Rcovery Script : fail."));
            EXPECT_THAT(triggered, IsEmpty());
            EXPECT_THAT(critical, IsEmpty());
            continue;
        }
        ASSERT_THAT(triggered, SizeIs(2));
        EXPECT_EQ(triggered[0].arg1, "RM_2");
        EXPECT_THAT(triggered[0].message,
                    EndsWith("successfully recovered RM on OAM# 2"));
        EXPECT_EQ(triggered[1].arg1, "RM_5");
        ASSERT_THAT(critical, SizeIs(1));
        EXPECT_EQ(critical[0].level, 2);
        EXPECT_THAT(critical[0].message,
                    EndsWith("failed to recover RM on OAM# 5"));
    }
}

TEST(StandbyBoardTest, RegulatorPowerForUpdateNeedsHotswapGood)
{
    for (bool hotswapFails : {false, true})
    {
        SCOPED_TRACE(hotswapFails);
        auto scenario = hotswapFails ? withFault("hotswapNoGood")
                                     : VirtualBoardFixture::healthyBoard();
        PowerBoard b(scenario);
        ASSERT_TRUE(b.runStandby());
        ASSERT_NE(CycleOamRail(b.state), 0U);
        EXPECT_THAT(b.fx.board->summary()[0], HasSubstr("OAM on"));

        uint32_t result = VrPowerOnForUpdate(b.state);
        auto unexpected = eventsWithId(b.fx.fake.zellib, "OrvaneSvcUnexpected");
        if (!hotswapFails)
        {
            EXPECT_NE(result, 0U);
            EXPECT_THAT(b.fx.board->summary()[2],
                        HasSubstr("hotswap on (good)"));
            EXPECT_THAT(unexpected, IsEmpty());
            continue;
        }
        EXPECT_EQ(result, 0U);
        ASSERT_THAT(unexpected, SizeIs(1));
        EXPECT_THAT(unexpected[0].message,
                    EndsWith("VR - Power Sequence: [Base power-on] Fail to "
                             "receive Hotswap controller Power good."));
        // The expander answered: a missing power good is no I2C failure.
        for (const ZellibCall& call :
             b.fx.fake.zellib.calls(ZellibCall::Kind::i2cLog))
        {
            EXPECT_THAT(call.message, Not(HasSubstr("Hotswap controller")));
        }
    }
}

} // namespace
} // namespace orvane::test
