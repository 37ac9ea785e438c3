#include "main/boot_driver.hpp"

#include "logging/log_line.hpp"
#include "orvane/base_attempt_checks.hpp"
#include "orvane/base_power_off.hpp"
#include "orvane/base_power_on.hpp"
#include "orvane/hotswap_setup.hpp"
#include "orvane/power_monitor.hpp"
#include "orvane/power_service.hpp"
#include "orvane/sgpio.hpp"
#include "orvane/standby_power.hpp"
#include "orvane/warm_boot.hpp"
#include "secure-boot/image_info_bus.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "utils/critical_section.hpp"
#include "utils/platform/platform.hpp"

#include <chrono>
#include <thread>

namespace orvane
{

namespace
{

using namespace logging;
using SteadyTime = std::chrono::steady_clock::time_point;

constexpr int retryBudget = 4;

SteadyTime now()
{
    return platform::clock().steadyNow();
}

double secondsSince(SteadyTime start)
{
    int64_t nanoseconds =
        std::chrono::duration_cast<std::chrono::nanoseconds>(now() - start)
            .count();
    return static_cast<double>(nanoseconds) / 1000000000.0;
}

void stopSequencing()
{
    ConsoleLog(level::ERR) << "Power Sequence Stop";
}

void raiseRetryEvent(int retryCount)
{
    if (retryCount == retryBudget)
    {
        NvEvent(level::WARNING, "OrvaneSvcUnexpected", "", "", "")
            << "Power Sequence: Execute Base Power-off Sequence after a "
               "third.";
        return;
    }
    NvEvent(level::WARNING, "OrvaneSvcUnexpected", "", "", "")
        << "Power Sequence: Re-sequence " << retryCount << "...";
}

// Everything up to base power; false when the boot stops there.
bool RunStandby(OrvaneSvcState& state, sem_t* semaphore, SteadyTime zero,
                BootTimes& times, ComponentTimes& componentTimes,
                SecureBootService*& service)
{
    StartDbusService(state);
    uint32_t standbyOne = Stby_Pwr_on_Sqnc_1(state);
    bool warmGood = CheckWarmBootPowerGood(state) != 0;
    // Never freed: the copy task and the D-Bus methods outlive the boot.
    service = new SecureBootService(semaphore, warmGood);
    AttachImageInfoService(service);
    service->runUbbVrUpdate();
    if (standbyOne == 0 || Stby_Pwr_on_FpgaRail(state) == 0)
    {
        ConsoleLog(level::ERR) << "Standby power sequence 1 error";
        LeaveBootCriticalSection(semaphore);
        stopSequencing();
        return false;
    }
    service->runSecureBoot(state);
    times.secureBootSeconds = secondsSince(zero);
    if (!warmGood)
    {
        service->getComponentTimes(componentTimes);
    }
    std::thread(PowerMonitor, std::ref(state)).detach();
    if (Stby_Pwr_on_Sqnc_3(state) == 0)
    {
        // The semaphore stays taken: only the firmware copy, which now
        // never starts, would have posted it.
        ConsoleLog(level::ERR) << "Standby power sequence 3 error";
        stopSequencing();
        return false;
    }
    times.standbySeconds = secondsSince(zero);
    return true;
}

} // namespace

void RunBoot(OrvaneSvcState& state, sem_t* semaphore)
{
    sem_wait(semaphore);
    EnterBootCriticalSection(semaphore);
    ConsoleLog(level::INFO) << "*** Enter Boot Critical Section. ***";
    SteadyTime zero = now();
    BootTimes times;
    ComponentTimes componentTimes;
    SecureBootService* service = nullptr;
    if (!RunStandby(state, semaphore, zero, times, componentTimes, service))
    {
        return;
    }
    std::future<bool> copyTask =
        std::async(std::launch::async, &SecureBootService::parallelTask,
                   service, semaphore);
    RunSupervisingLoop(state, times, componentTimes, copyTask);
}

void RunSupervisingLoop(OrvaneSvcState& state, BootTimes& times,
                        const ComponentTimes& componentTimes,
                        std::future<bool>& copyTask)
{
    int retryCount = 0;
    while (true)
    {
        SteadyTime attemptStart = now();
        if (Base_Pwr_on_Sqnc(state) != 0)
        {
            retryCount = 0;
        }
        else
        {
            ConsoleLog(level::ERR) << "Base Power-on Sequence failed";
            raiseRetryEvent(++retryCount);
        }
        platform::sleepSeconds(1);
        uint32_t event = state.getSequenceEvent();
        CheckAfterBaseAttempt(retryCount, event);
        if (event == sequence_event::basePowerOn)
        {
            times.baseSeconds = secondsSince(attemptStart);
            PrintBootTimeReport(times, componentTimes);
            CollectCopyResult(copyTask);
        }
        Base_Pwr_off_Sqnc(state);
        if (CheckRmEfuseFault(state) == 0)
        {
            ConsoleLog(level::ERR)
                << "An eFuse status fault is detected, aborting the power "
                   "sequence retry loop.";
            break;
        }
        platform::sleepSeconds(1);
        if (retryCount == retryBudget)
        {
            break;
        }
    }
    CollectCopyResult(copyTask);
    ConsoleLog(level::ERR) << "Base power off due to error";
    ReportRetryExhausted(retryCount);
    stopSequencing();
}

void EnterEndState()
{
    while (true)
    {
        platform::sleepSeconds(1);
    }
}

} // namespace orvane
