#include "power_board.hpp"

#include "orvane/hotswap_setup.hpp"
#include "orvane/product_scan.hpp"
#include "orvane/standby_power.hpp"
#include "orvane/standby_stage2.hpp"
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

const std::string rescan =
    "busctl call xyz.openbmc_project.FruDevice /xyz/openbmc_project/FruDevice "
    "xyz.openbmc_project.FruDeviceManager ReScan";
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
    std::string out =
        console([&] { EXPECT_NE(Stby_Pwr_on_Sqnc_2(b.state), 0U); });

    std::vector<ZellibCall> emc;
    for (const ZellibCall& call :
         b.fx.fake.zellib.calls(ZellibCall::Kind::i2cLog))
    {
        if (call.message ==
            "Power Sequence Standby Power On: Fail to enable EMC1438")
        {
            emc.push_back(call);
        }
    }
    ASSERT_THAT(emc, SizeIs(1));
    EXPECT_EQ(emc[0].level, 2);
    EXPECT_TRUE(emc[0].i2c->otherFailure);
    EXPECT_EQ(emc[0].i2c->bus, 14);
    EXPECT_EQ(emc[0].i2c->address, 0x4C);
    EXPECT_EQ(emc[0].i2c->reg, 0x3B);
    EXPECT_THAT(out, HasSubstr("Enable EMC1438 external diode channels by "
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
        std::string out =
            console([&] { EXPECT_NE(Stby_Pwr_on_Sqnc_2(b.state), 0U); });

        EXPECT_THAT(b.fx.fake.shell.commands(), Contains(rmRecovery));
        auto triggered =
            eventsWithId(b.fx.fake.zellib, "AutomaticRecoveryTriggered");
        auto critical =
            eventsWithId(b.fx.fake.zellib, "AutomaticRecoveryFailureCritical");
        if (status != 0)
        {
            EXPECT_THAT(out, HasSubstr("RM Rcovery Script : fail."));
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
