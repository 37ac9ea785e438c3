#include "base_test_support.hpp"

#include "orvane/base_detail.hpp"
#include "orvane/power_monitor.hpp"

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

constexpr const char* criticalOem =
    "ResourceEvent.1.2.1.ResourceStatusChangedCriticalOEM";
constexpr MonitorEntry moduleEntry{18, 0xFF, 0x61, 0x56, 3};

ubbsim::Fault fault(const std::string& kind)
{
    ubbsim::Fault made;
    made.kind = kind;
    return made;
}

ubbsim::Scenario runningWith(std::vector<ubbsim::Fault> faults)
{
    ubbsim::Scenario scenario = warmBoard(true);
    for (ubbsim::Fault& each : faults)
    {
        faultAt(scenario, each);
    }
    return scenario;
}

size_t criticalReports(const BaseBoard& b)
{
    return b.nvEvents("UBBPowerStatusCritical").size() +
           b.nvEvents("OAMPowerStatusCritical").size();
}

TEST(PowerMonitorRound, HealthyBoardWatchesEverySignalAndTheFpgas)
{
    BaseBoard b(warmBoard(true));
    b.runningState();
    Console console;

    detail::PowerMonitorRound(b.state);

    // Seventeen signals, a second's pause after each.
    EXPECT_GE(b.fx.seconds(), 17.0);
    EXPECT_LT(b.fx.seconds(), 18.0);
    EXPECT_TRUE(b.state.ubbFpgaStatus);
    EXPECT_TRUE(b.state.smcFpgaStatus);
    EXPECT_THAT(b.published("UBBFPGAStatus"), ElementsAre("True"));
    EXPECT_THAT(b.published("SMCFPGAStatus"), ElementsAre("True"));
    EXPECT_THAT(b.fx.fake.zellib.calls(ZellibCall::Kind::log), IsEmpty());
    EXPECT_FALSE(b.state.baseDownRequest);
}

TEST(PowerMonitorRound, LostFpgaRailIsReportedButPowerStays)
{
    ubbsim::Fault drop = fault("railDrop");
    drop.rail = "VCC_BRAM_FPGA";
    BaseBoard b(runningWith({drop}));
    b.runningState();
    Console console;

    detail::PowerMonitorRound(b.state);

    EXPECT_EQ(b.state.sequenceEvent, 2U);
    auto reports = b.nvEvents("UBBPowerStatusCritical");
    ASSERT_THAT(reports, SizeIs(1));
    EXPECT_EQ(reports[0].arg1, "VCC_BRAM_FPGA");
    EXPECT_FALSE(b.state.baseDownRequest);
    EXPECT_TRUE(b.state.basePowerStatus);
    // The rail read fine: no I2C record.
    EXPECT_THAT(b.fx.fake.zellib.calls(ZellibCall::Kind::i2cLog), IsEmpty());
    EXPECT_THAT(console.text(),
                HasSubstr("PWRMON_PwrGd_Chk VCC_BRAM_FPGA power good fail"));
}

TEST(PowerMonitorRound, LostK517RailIsOnlyNoted)
{
    ubbsim::Fault drop = fault("railDrop");
    drop.rail = "1V8_RT47_K517";
    BaseBoard b(runningWith({drop}));
    b.runningState();
    Console console;

    detail::PowerMonitorRound(b.state);

    EXPECT_THAT(console.text(), HasSubstr("PowerMonitor k517 rt rail failed."));
    EXPECT_EQ(criticalReports(b), 0U);
    EXPECT_FALSE(b.state.baseDownRequest);
    // The retimer, OAM and module lists and the SGPIO wait for next round.
    EXPECT_LT(b.fx.seconds(), 10.0);
    EXPECT_THAT(b.published("UBBFPGAStatus"), IsEmpty());
}

TEST(PowerMonitorRound, LostModuleEndsBasePowerUnlessOamZeroWasDown)
{
    ubbsim::Fault lost = fault("moduleGoodLost");
    lost.oam = 4;
    BaseBoard b(runningWith({lost}));
    b.runningState();
    Console console;

    detail::PowerMonitorRound(b.state);

    EXPECT_EQ(b.state.sequenceEvent, sequence_event::module);
    EXPECT_TRUE(b.state.baseDownRequest);
    auto lostOams = b.events("cannot recieve the power good signal");
    ASSERT_THAT(lostOams, SizeIs(1));
    EXPECT_EQ(lostOams[0].arg1, "OAM_4 module power good,Critical");
    EXPECT_EQ(lostOams[0].messageId, criticalOem);
    EXPECT_EQ(lostOams[0].level, 2);
    auto reports = b.nvEvents("OAMPowerStatusCritical");
    ASSERT_THAT(reports, SizeIs(1));
    EXPECT_EQ(reports[0].arg1, "Module");
    EXPECT_THAT(console.text(), HasSubstr("PowerMonitor Module fail."));

    // Only a board whose power-on saw OAM_0 good (moduleGoodMask bit 0) is
    // judged.
    b.fx.fake.zellib.clear();
    b.state.moduleGoodMask = 0xFE;
    const MonitorEntry list[] = {moduleEntry};
    EXPECT_TRUE(PWRMON_PwrGd_Chk(b.state, list));
    EXPECT_THAT(b.events("cannot recieve"), IsEmpty());
}

TEST(PowerMonitorChecks, RunningSequenceMakesTheMonitorStepAside)
{
    BaseBoard b(warmBoard(true));
    b.runningState();
    b.state.baseTransition = true;
    b.state.baseDownRequest = true;
    b.state.sequenceEvent = 17;
    const MonitorEntry list[] = {moduleEntry};

    EXPECT_FALSE(PWRMON_PwrGd_Chk(b.state, list));
    PWRMON_errorHandle(b.state);

    EXPECT_EQ(b.fx.seconds(), 0.0);
    EXPECT_EQ(b.state.sequenceEvent, 17U);
    EXPECT_TRUE(b.state.baseDownRequest);
    EXPECT_EQ(criticalReports(b), 0U);
}

// Which faults report and which end base power.
TEST(PowerMonitorErrorHandle, EachEventHasItsConsequence)
{
    struct Case
    {
        uint32_t event;
        const char* report; // message id of the critical entry, if any
        bool downRequest;   // baseDownRequest after, from true
    };
    const Case cases[] = {
        {1, "UBBPowerStatusCritical", true},
        {5, "UBBPowerStatusCritical", true},
        {6, nullptr, true},
        {11, nullptr, true},
        {12, "OAMPowerStatusCritical", true},
        {13, "OAMPowerStatusCritical", true},
        {14, nullptr, false},
        {16, nullptr, false},
        {17, "OAMPowerStatusCritical", true},
        {18, "OAMPowerStatusCritical", true},
        {19, nullptr, false},
        {0, nullptr, false},
    };
    for (const Case& c : cases)
    {
        FakePlatform fake;
        Console console;
        OrvaneSvcState state;
        state.sequenceEvent = c.event;
        state.baseDownRequest = true;

        PWRMON_errorHandle(state);

        EXPECT_EQ(state.baseDownRequest, c.downRequest) << c.event;
        auto entries = fake.zellib.calls(ZellibCall::Kind::nvLog);
        if (c.report == nullptr)
        {
            EXPECT_THAT(entries, IsEmpty()) << c.event;
        }
        else
        {
            ASSERT_THAT(entries, SizeIs(1)) << c.event;
            EXPECT_EQ(entries[0].messageId, c.report);
        }
        const bool logged =
            console.text().find("PowerMonitor ") != std::string::npos;
        EXPECT_EQ(logged, c.event >= 6 && c.event <= 18 && c.event != 14 &&
                              c.event != 15 && c.event != 16)
            << c.event;
    }
}

// The SMC FPGA's status is read in the light of the UBB FPGA's.
TEST(PowerMonitorRound, FpgaStatusesFromTheirSgpio)
{
    struct Case
    {
        bool ubbFault;
        int smc; // 0 clean, 1 fault bits, -1 silent
        bool ubbStatus;
        bool smcStatus;
    };
    const Case cases[] = {
        {false, 0, true, true},   {false, 1, true, false},
        {false, -1, true, false}, {true, 0, false, true},
        {true, 1, false, true},   {true, -1, false, false},
    };
    for (const Case& c : cases)
    {
        std::vector<ubbsim::Fault> faults;
        if (c.ubbFault)
        {
            ubbsim::Fault bits = fault("sgpio");
            bits.fpga = "ubb";
            bits.value = 0x20;
            faults.push_back(bits);
        }
        if (c.smc == 1)
        {
            ubbsim::Fault bits = fault("sgpio");
            bits.fpga = "smc";
            bits.value = 0x01;
            faults.push_back(bits);
        }
        if (c.smc == -1)
        {
            ubbsim::Fault silent = fault("nack");
            silent.bus = 12;
            silent.address = 0x23;
            faults.push_back(silent);
        }
        BaseBoard b(runningWith(faults));
        b.runningState();
        Console console;

        detail::PowerMonitorRound(b.state);

        EXPECT_EQ(b.state.ubbFpgaStatus, c.ubbStatus)
            << c.ubbFault << " " << c.smc;
        EXPECT_EQ(b.state.smcFpgaStatus, c.smcStatus)
            << c.ubbFault << " " << c.smc;
    }
}

} // namespace
} // namespace orvane::test
