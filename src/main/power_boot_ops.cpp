#include "main/power_boot_ops.hpp"

#include "logging/log_line.hpp"
#include "orvane/base_power.hpp"
#include "orvane/hotswap_setup.hpp"
#include "orvane/power_monitor.hpp"
#include "orvane/power_service.hpp"
#include "orvane/standby_power.hpp"
#include "utils/platform/platform.hpp"

namespace orvane
{

namespace
{

// The flash side that a healthy board's boot partition record names.
constexpr int sideA = 0;

} // namespace

void PowerBootOps::RunDbusService(OrvaneSvcState& state)
{
    orvane::RunDbusService(state);
}

void PowerBootOps::PowerMonitor(OrvaneSvcState& state)
{
    orvane::PowerMonitor(state);
}

uint32_t PowerBootOps::Stby_Pwr_on_Sqnc_1(OrvaneSvcState& state)
{
    return orvane::Stby_Pwr_on_Sqnc_1(state);
}

uint32_t PowerBootOps::CheckWarmBootPowerGood(OrvaneSvcState& state)
{
    return orvane::CheckWarmBootPowerGood(state);
}

void PowerBootOps::CreateSecureBootService(sem_t* criticalSection, bool warm)
{
    semaphore = criticalSection;
    warmGood = warm;
}

void PowerBootOps::halt()
{
    NvEvent(logging::level::WARNING, "BootFailure", "RoT", "", "")
        << "System halt and enable FW recovery mode.";
    sem_post(semaphore);
    ConsoleLog(logging::level::INFO) << "*** Leave Boot Critical Section. ***";
    while (true)
    {
        platform::sleepSeconds(10);
    }
}

void PowerBootOps::UbbVrUpdate()
{}

uint32_t PowerBootOps::Stby_Pwr_on_FpgaRail(OrvaneSvcState& state)
{
    return orvane::Stby_Pwr_on_FpgaRail(state);
}

void PowerBootOps::RunSecureBoot(OrvaneSvcState& state)
{
    // After a warm reset with power good the hardware keeps running as it
    // is: nothing of standby is repeated.
    if (warmGood)
    {
        return;
    }
    if (Stby_Pwr_on_Sqnc_2_PreRetimer(state, sideA) == 0 ||
        Stby_Pwr_on_Sqnc_2(state) == 0)
    {
        ConsoleLog(logging::level::ERR) << "Standby power sequence 2 error";
        halt();
    }
}

void PowerBootOps::CollectComponentTimes(ComponentTimes&)
{}

uint32_t PowerBootOps::Stby_Pwr_on_Sqnc_3(OrvaneSvcState& state)
{
    return orvane::Stby_Pwr_on_Sqnc_3(state);
}

bool PowerBootOps::ParallelTask(sem_t* semaphore)
{
    sem_post(semaphore);
    ConsoleLog(logging::level::INFO) << "*** Leave Boot Critical Section. ***";
    return true;
}

uint32_t PowerBootOps::Base_Pwr_on_Sqnc(OrvaneSvcState& state)
{
    return orvane::Base_Pwr_on_Sqnc(state);
}

uint32_t PowerBootOps::Base_Pwr_off_Sqnc(OrvaneSvcState& state)
{
    return orvane::Base_Pwr_off_Sqnc(state);
}

uint32_t PowerBootOps::CheckRmEfuseFault(OrvaneSvcState& state)
{
    return orvane::CheckRmEfuseFault(state);
}

} // namespace orvane
