#include "power_board.hpp"

#include "orvane/power_monitor.hpp"
#include "orvane/sgpio.hpp"
#include "utils/i2c_ops.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using namespace ::testing;

constexpr const char* criticalOem =
    "ResourceEvent.1.2.1.ResourceStatusChangedCriticalOEM";
constexpr MonitorEntry moduleEntry{18, 0xFF, 0x61, 0x56, 3};

ubbsim::Scenario runningWith(std::vector<ubbsim::Fault> faults)
{
    ubbsim::Scenario scenario = warmBoard(true);
    scenario.faults = std::move(faults);
    return scenario;
}

ubbsim::Fault sgpio(const std::string& fpga, int bits)
{
    ubbsim::Fault fault = faultOf("sgpio");
    fault.fpga = fpga;
    fault.value = bits;
    return fault;
}

// One monitor round on a running board.
void round(PowerBoard& b, std::string* out = nullptr)
{
    b.runningState();
    std::string text = console([&] { detail::PowerMonitorRound(b.state); });
    if (out != nullptr)
    {
        *out = text;
    }
}

size_t criticalReports(const PowerBoard& b)
{
    return b.nvEvents("UBBPowerStatusCritical").size() +
           b.nvEvents("OAMPowerStatusCritical").size();
}

TEST(PowerMonitorRound, LostK517RailIsOnlyNoted)
{
    ubbsim::Fault drop = faultOf("railDrop");
    drop.rail = "1V8_RT47_K517";
    PowerBoard b(runningWith({drop}));
    std::string out;
    round(b, &out);

    EXPECT_THAT(out, HasSubstr("PowerMonitor k517 rt rail failed."));
    EXPECT_EQ(criticalReports(b), 0U);
    EXPECT_FALSE(b.state.baseDownRequest);
    // The retimer, OAM and module lists and the SGPIO wait for next round.
    EXPECT_LT(b.fx.seconds(), 10.0);
    EXPECT_THAT(b.published("UBBFPGAStatus"), IsEmpty());
}

TEST(PowerMonitorRound, LostModuleEndsBasePowerUnlessOamZeroWasDown)
{
    ubbsim::Fault lost = faultOf("moduleGoodLost");
    lost.oam = 4;
    PowerBoard b(runningWith({lost}));
    std::string out;
    round(b, &out);

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
    EXPECT_THAT(out, HasSubstr("PowerMonitor Module fail."));

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
    PowerBoard b(warmBoard(true));
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
        OrvaneSvcState state;
        state.sequenceEvent = c.event;
        state.baseDownRequest = true;

        std::string out = console([&] { PWRMON_errorHandle(state); });

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
        const bool logged = occurrences(out, "PowerMonitor ") > 0;
        EXPECT_EQ(logged, c.event >= 6 && c.event <= 18 && c.event != 14 &&
                              c.event != 15 && c.event != 16)
            << c.event;
    }
}

// Each round watches seventeen signals, a second's pause after each, and
// publishes the FPGAs' statuses; the SMC FPGA's is read in the light of the
// UBB FPGA's.
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
        ubbsim::Scenario scenario = warmBoard(true);
        if (c.ubbFault)
        {
            scenario.faults.push_back(sgpio("ubb", 0x20));
        }
        if (c.smc != 0)
        {
            scenario.faults.push_back(c.smc == 1 ? sgpio("smc", 0x01)
                                                 : silent(12, 0x23));
        }
        PowerBoard b(scenario);
        round(b);

        SCOPED_TRACE(testing::Message() << c.ubbFault << " " << c.smc);
        EXPECT_EQ(b.state.ubbFpgaStatus, c.ubbStatus);
        EXPECT_EQ(b.state.smcFpgaStatus, c.smcStatus);
        EXPECT_THAT(b.published("UBBFPGAStatus"),
                    ElementsAre(c.ubbStatus ? "True" : "False"));
        EXPECT_THAT(b.published("SMCFPGAStatus"),
                    ElementsAre(c.smcStatus ? "True" : "False"));
        EXPECT_FALSE(b.state.baseDownRequest);
        if (!c.ubbFault && c.smc == 0)
        {
            EXPECT_GE(b.fx.seconds(), 17.0);
            EXPECT_LT(b.fx.seconds(), 18.0);
            EXPECT_THAT(b.fx.fake.zellib.calls(ZellibCall::Kind::log),
                        IsEmpty());
        }
    }
}

uint8_t status(int bus, uint8_t address)
{
    int event = 0;
    uint8_t value = 0xAA;
    EXPECT_TRUE(I2CSmbusReadBlock(&event, bus, address, 0xE0, &value, 1));
    return value;
}

// Fault bits are cleared by writing them back; 0x08 and 0x80 are no faults
// and stay.
TEST(Sgpio, FaultBitsAreClearedByWritingThemBack)
{
    VirtualBoardFixture fx(
        runningWith({sgpio("ubb", 0x88 | 0x04), sgpio("smc", 0x88)}));
    OrvaneSvcState state;

    EXPECT_EQ(ReadUbbFpgaSgpio(state), 0);
    EXPECT_EQ(status(3, 0x56), 0x00);
    EXPECT_EQ(ReadUbbFpgaSgpio(state), 1);
    EXPECT_EQ(ReadSmcFpgaSgpio(), 0);
    EXPECT_EQ(status(12, 0x23), 0x88);
}

TEST(Sgpio, InitialisationClearsEverySetBit)
{
    VirtualBoardFixture fx(
        runningWith({sgpio("smc", 0x88), sgpio("ubb", 0x11)}));

    std::string out = console([] {
        InitSmcFpgaSgpio();
        InitUbbFpgaSgpio();
    });

    EXPECT_EQ(status(12, 0x23), 0x00);
    EXPECT_EQ(status(3, 0x56), 0x00);
    EXPECT_THAT(out, HasSubstr("Success to clear the bits of UBB "
                               "FPGA SGPIO status. Current status: "
                               "0x0"));
}

// A fault and an RM that can't be read both end the supervising loop's
// retries.
TEST(RmEfuse, FaultOrMissingRmFailsTheCheck)
{
    ubbsim::Fault efuse = faultOf("efuse");
    efuse.oam = 2;
    efuse.value = 0x01;
    struct Case
    {
        std::vector<ubbsim::Fault> faults;
        uint32_t result;
        const char* line;
    };
    const Case cases[] = {
        {{}, 1, ""},
        {{efuse}, 0, "RM2 detect the eFuse state fault,eFuse value 0x1"},
        {{silent(7, 0x56)},
         0,
         "Fail to read RM2(channel 7) slave address 0x56 register address "
         "0xf24b"},
    };
    for (const Case& c : cases)
    {
        VirtualBoardFixture fx(runningWith(c.faults));
        OrvaneSvcState state;
        std::string out = console([&] {
            EXPECT_EQ(CheckRmEfuseFault(state) != 0, c.result != 0) << c.line;
        });
        EXPECT_THAT(out, HasSubstr(c.line));
    }
}

} // namespace
} // namespace orvane::test
