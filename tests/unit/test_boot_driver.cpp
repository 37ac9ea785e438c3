#include "fakes/console_capture.hpp"
#include "fakes/fake_platform.hpp"
#include "main/boot_driver.hpp"
#include "main/register_checks.hpp"

#include <atomic>
#include <deque>
#include <mutex>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane
{
namespace
{

using test::ZellibCall;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

struct BaseAttempt
{
    uint32_t result;
    uint32_t event;
};

// Power sequences and service calls as scripted by each test.
class ScriptedOps : public BootOps
{
  public:
    // The thread bodies end at once; when they run is up to the scheduler.
    void RunDbusService(OrvaneSvcState&) override
    {
        ++threadBodiesDone;
    }
    void PowerMonitor(OrvaneSvcState&) override
    {
        ++threadBodiesDone;
    }
    uint32_t Stby_Pwr_on_Sqnc_1(OrvaneSvcState&) override
    {
        note("standby1");
        return standbyOne;
    }
    uint32_t CheckWarmBootPowerGood(OrvaneSvcState&) override
    {
        return warmGood;
    }
    void CreateSecureBootService(sem_t*, bool warm) override
    {
        note(warm ? "service warm" : "service cold");
    }
    void UbbVrUpdate() override
    {
        note("ubbVr");
    }
    uint32_t Stby_Pwr_on_FpgaRail(OrvaneSvcState&) override
    {
        note("fpgaRail");
        return fpgaRail;
    }
    void RunSecureBoot(OrvaneSvcState&) override
    {
        note("secureBoot");
    }
    void CollectComponentTimes(ComponentTimes& times) override
    {
        times = {{"Retimer", 2.5}, {"IFWI", 1.0}};
    }
    uint32_t Stby_Pwr_on_Sqnc_3(OrvaneSvcState&) override
    {
        note("standby3");
        return standbyThree;
    }
    bool ParallelTask(sem_t* semaphore) override
    {
        ++copies; // runs beside base power-on, so kept out of the order
        sem_post(semaphore);
        return copyResult;
    }
    uint32_t Base_Pwr_on_Sqnc(OrvaneSvcState& state) override
    {
        BaseAttempt attempt =
            attempts.empty() ? BaseAttempt{0, 16} : attempts.front();
        if (!attempts.empty())
        {
            attempts.pop_front();
        }
        state.sequenceEvent = attempt.event;
        note("baseOn");
        return attempt.result;
    }
    uint32_t Base_Pwr_off_Sqnc(OrvaneSvcState& state) override
    {
        note("baseOff " + std::to_string(state.getSequenceEvent()));
        return 1;
    }
    uint32_t CheckRmEfuseFault(OrvaneSvcState&) override
    {
        ++efuseChecks;
        return efuseChecks == efuseFaultAt ? 0 : 1;
    }

    std::vector<std::string> calls()
    {
        std::lock_guard lock(mutex);
        return recorded;
    }

    uint32_t standbyOne = 1;
    uint32_t warmGood = 0;
    uint32_t fpgaRail = 1;
    uint32_t standbyThree = 1;
    bool copyResult = true;
    std::deque<BaseAttempt> attempts;
    int efuseFaultAt = -1;
    int efuseChecks = 0;
    std::atomic<int> copies{0};
    std::atomic<int> threadBodiesDone{0};

  private:
    void note(const std::string& call)
    {
        std::lock_guard lock(mutex);
        recorded.push_back(call);
    }
    std::mutex mutex;
    std::vector<std::string> recorded;
};

class BootDriverTest : public ::testing::Test
{
  protected:
    BootDriverTest()
    {
        fake.i2c.addDevice(boot_reg::fpgaBus, boot_reg::fpgaAddress);
        fake.i2c.addDevice(boot_reg::expanderBus, boot_reg::expanderAddress);
        setFpga(boot_reg::ctf, 0xFF);
        setFpga(boot_reg::moduleGood, 0xFF);
        setFpga(boot_reg::oamPresent, 0x00);
        fake.i2c.setRegister(boot_reg::expanderBus, boot_reg::expanderAddress,
                             boot_reg::hotswapGood, 0x0F);
        sem_init(&semaphore, 0, 1);
    }

    ~BootDriverTest() override
    {
        // The service threads are detached; in the daemon they outlive
        // everything, here they must be over before the fixture goes.
        auto calls = ops.calls();
        bool monitorStarted =
            std::find(calls.begin(), calls.end(), "secureBoot") != calls.end();
        int started = booted ? (monitorStarted ? 2 : 1) : 0;
        while (ops.threadBodiesDone < started)
        {
            std::this_thread::yield();
        }
        sem_destroy(&semaphore);
    }

    void setFpga(uint8_t reg, uint8_t value)
    {
        fake.i2c.setRegister(boot_reg::fpgaBus, boot_reg::fpgaAddress, reg,
                             value);
    }

    // Runs the boot to its stop and returns the console trail.
    std::string boot()
    {
        booted = true;
        return test::console([this] { RunBoot(ops, state, &semaphore); });
    }

    std::vector<std::string> eventTexts(const std::string& id)
    {
        std::vector<std::string> texts;
        for (const auto& call : fake.zellib.calls(ZellibCall::Kind::log))
        {
            if (call.messageId == id)
            {
                auto cut = call.message.find("] ");
                texts.push_back(call.message.substr(cut + 2) + " | " +
                                call.arg1);
            }
        }
        return texts;
    }

    int semaphoreValue()
    {
        int value = -1;
        sem_getvalue(&semaphore, &value);
        return value;
    }

    test::FakePlatform fake;
    ScriptedOps ops;
    OrvaneSvcState state;
    sem_t semaphore;
    bool booted = false;
};

TEST_F(BootDriverTest, FourFailedAttemptsSpendTheBudgetAndStop)
{
    setFpga(boot_reg::moduleGood, 0x00);
    setFpga(boot_reg::oamPresent, 0xFC); // OAM_0 and OAM_1 fitted
    fake.i2c.setRegister(14, 0x27, boot_reg::hotswapGood, 0x07);
    ops.attempts = {{0, 17}, {0, 17}, {0, 18}, {0, 16}};
    std::string trail = boot();

    EXPECT_THAT(eventTexts("OrvaneSvcUnexpected"),
                ElementsAre("Power Sequence: Re-sequence 1... | ",
                            "Power Sequence: Re-sequence 2... | ",
                            "Power Sequence: Re-sequence 3... | ",
                            "Power Sequence: Execute Base Power-off Sequence "
                            "after a third. | "));
    // Module and hotswap criticals appear once: in the turn with count 1.
    const char* critical =
        "ResourceEvent.1.2.1.ResourceStatusChangedCriticalOEM";
    EXPECT_THAT(
        eventTexts(critical),
        ElementsAre(
            "OAM 0 cannot recieve the power good signal | OAM_0 module "
            "power good,Critical",
            "OAM 1 cannot recieve the power good signal | OAM_1 module "
            "power good,Critical",
            "Hotswap power good status from I/O expanders - Unexpected "
            "reading value (Not equal 0x0f). I2C bus 14; Slave address 0x27; "
            "Register offset 0x04; Reading value: 0x7 | HSC power "
            "good,Critical Value 0x7"));
    EXPECT_THAT(eventTexts("ResourceEvent.1.2.1.ResourceRetryFailOEM"),
                ElementsAre("Hotswap power good value: 0x7 | HSC power "
                            "good,to boot,4 retries",
                            "OAM 0 cannot recieve the power good signal "
                            "after retries | OAM_0 module power good,to "
                            "boot,4 retries",
                            "OAM 1 cannot recieve the power good signal "
                            "after retries | OAM_1 module power good,to "
                            "boot,4 retries"));
    // Every failed attempt is torn down by what it reached.
    auto calls = ops.calls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "baseOn"), 4);
    EXPECT_THAT(std::vector<std::string>(calls.end() - 2, calls.end()),
                ElementsAre("baseOn", "baseOff 16"));
    EXPECT_THAT(trail,
                HasSubstr("Module Power Good Register 0x61 value is fc"));
    EXPECT_THAT(trail,
                HasSubstr("Module Power Good Register 0x61 value is 0\n"));
    auto error = trail.find("Base power off due to error");
    ASSERT_NE(error, std::string::npos);
    EXPECT_NE(trail.find("Power Sequence Stop", error), std::string::npos);
    EXPECT_EQ(ops.copies, 1);
}

TEST_F(BootDriverTest, GoodPowerOnRefreshesTheBudgetAndReportsEachTime)
{
    ops.attempts = {{0, 17}, {1, 19}, {0, 17}, {1, 19},
                    {0, 16}, {0, 16}, {0, 16}, {0, 16}};
    std::string trail = boot();
    EXPECT_THAT(eventTexts("OrvaneSvcUnexpected"),
                ElementsAre("Power Sequence: Re-sequence 1... | ",
                            "Power Sequence: Re-sequence 1... | ",
                            "Power Sequence: Re-sequence 1... | ",
                            "Power Sequence: Re-sequence 2... | ",
                            "Power Sequence: Re-sequence 3... | ",
                            "Power Sequence: Execute Base Power-off Sequence "
                            "after a third. | "));
    size_t first = trail.find("Boot  Time");
    ASSERT_NE(first, std::string::npos);
    EXPECT_NE(trail.find("Boot  Time", first + 1), std::string::npos);
    EXPECT_THAT(trail, HasSubstr("*** The Component - IFWI verification took "
                                 "1 sec ***\n"));
    // The copy result is taken once; later collections find it gone.
    size_t skip = trail.find("parallelTask Skip copy process");
    EXPECT_GT(skip, first);
    EXPECT_NE(trail.find("parallelTask Skip copy process", skip + 1),
              std::string::npos);
    EXPECT_EQ(trail.find("parallelTask Copy Occur failed"), std::string::npos);
    // All OAMs good: no per-OAM retry events after the budget is spent.
    EXPECT_TRUE(eventTexts("ResourceEvent.1.2.1.ResourceRetryFailOEM").empty());
}

TEST_F(BootDriverTest, BootTimeReportLinesAndSeconds)
{
    ops.attempts = {{1, 19}};
    ops.efuseFaultAt = 1;
    ops.copyResult = false;
    std::string trail = boot();
    const char* expected[] = {
        "--------------------------------------------------------------------",
        "|                             Boot  Time                           |",
        "*** StandBy Power On took 0 sec ***",
        "*** The Component - IFWI verification took 1 sec ***",
        "*** The Component - Retimer verification took 2.5 sec ***",
        "*** Total Secure Boot Verification took 0 sec ***",
        // Both one-second sleeps of a turn fall before this check.
        "*** Base Power On took 1sec *** \n",
        "parallelTask Copy Occur failed",
    };
    size_t at = 0;
    for (const char* line : expected)
    {
        size_t found = trail.find(line, at);
        ASSERT_NE(found, std::string::npos) << line;
        at = found;
    }
}

TEST_F(BootDriverTest, EfuseFaultEndsTheLoopAtOnce)
{
    ops.warmGood = 1;
    ops.attempts = {{1, 19}, {1, 19}};
    ops.efuseFaultAt = 1;
    std::string trail = boot();
    EXPECT_THAT(trail, HasSubstr("An eFuse status fault is detected, aborting "
                                 "the power sequence retry loop."));
    EXPECT_THAT(trail, HasSubstr("Power Sequence Stop"));
    // After a warm reset with power good no component was verified.
    EXPECT_EQ(trail.find("The Component"), std::string::npos);
    auto calls = ops.calls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "baseOn"), 1);
    EXPECT_TRUE(eventTexts("OrvaneSvcUnexpected").empty());
}

TEST_F(BootDriverTest, StandbyOneFailureStillReadsServiceAndLeavesSection)
{
    ops.standbyOne = 0;
    std::string trail = boot();
    auto calls = ops.calls();
    // The service and the VR check run even after a failed first stage.
    EXPECT_NE(std::find(calls.begin(), calls.end(), "service cold"),
              calls.end());
    EXPECT_NE(std::find(calls.begin(), calls.end(), "ubbVr"), calls.end());
    EXPECT_EQ(std::find(calls.begin(), calls.end(), "secureBoot"), calls.end());
    EXPECT_EQ(semaphoreValue(), 1);
    size_t error = trail.find("Standby power sequence 1 error");
    size_t leave = trail.find("*** Leave Boot Critical Section. ***");
    size_t stop = trail.find("Power Sequence Stop");
    EXPECT_LT(error, leave);
    EXPECT_LT(leave, stop);
    EXPECT_NE(stop, std::string::npos);
}

TEST_F(BootDriverTest, StandbyThreeFailureKeepsTheCriticalSection)
{
    ops.standbyThree = 0;
    std::string trail = boot();
    EXPECT_THAT(trail, HasSubstr("Standby power sequence 3 error"));
    EXPECT_EQ(trail.find("Leave Boot Critical Section"), std::string::npos);
    EXPECT_EQ(semaphoreValue(), 0);
    auto calls = ops.calls();
    EXPECT_EQ(ops.copies, 0);
    EXPECT_EQ(std::find(calls.begin(), calls.end(), "baseOn"), calls.end());
}

TEST_F(BootDriverTest, CtfFaultsRaiseOnlyBeforeBasePowerIsOn)
{
    setFpga(boot_reg::ctf, 0x7E); // OAM_0 and OAM_7
    test::console([] {
        CheckAfterBaseAttempt(1, 18);
        CheckAfterBaseAttempt(0, 19);
    });
    EXPECT_THAT(
        eventTexts("ResourceEvent.1.2.1.TemperatureAssertCriticalFaultOEM"),
        ElementsAre("Power Sequence: OAM_0 triggered CTF Register 0xC0 | OAM_0",
                    "Power Sequence: OAM_7 triggered CTF Register 0xC0 | "
                    "OAM_7"));
}

TEST_F(BootDriverTest, FailedRegisterReadsBecomeI2cEvents)
{
    fake.i2c.removeDevice(boot_reg::fpgaBus, boot_reg::fpgaAddress);
    std::string trail = test::console([] {
        CheckAfterBaseAttempt(4, 19);
        CheckAfterBaseAttempt(2, 17);
    });
    EXPECT_THAT(trail, HasSubstr("Fail to read CTF Register 0xC0"));
    auto records = fake.zellib.calls(ZellibCall::Kind::i2cLog);
    ASSERT_EQ(records.size(), 4U);
    EXPECT_EQ(records[0].message,
              "Power Sequence: Fail to read CTF Register 0xC0. Retry 4");
    EXPECT_EQ(records[0].level, 2);
    EXPECT_TRUE(records[0].flag);
    EXPECT_EQ(records[0].i2c->reg, 0xC0);
    EXPECT_TRUE(records[0].i2c->readFailed);
    EXPECT_EQ(records[0].i2c->readLength, 1U);
    EXPECT_EQ(records[1].message, "Power Sequence: Fail to read Module Power "
                                  "Good Register 0x61. Retry 4");
    EXPECT_EQ(records[2].level, 4);
    EXPECT_FALSE(records[2].flag);
    EXPECT_EQ(records[3].i2c->reg, 0x61);
}

} // namespace
} // namespace orvane
