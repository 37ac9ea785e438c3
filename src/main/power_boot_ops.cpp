#include "main/power_boot_ops.hpp"

#include "logging/log_line.hpp"
#include "orvane/base_power.hpp"
#include "orvane/hotswap_setup.hpp"
#include "orvane/power_monitor.hpp"
#include "orvane/power_service.hpp"
#include "orvane/standby_power.hpp"
#include "secure-boot/boot_failure.hpp"
#include "secure-boot/erot_calls.hpp"
#include "secure-boot/secure_boot_status.hpp"
#include "secure-boot/trace_log.hpp"

#include <erotlib/erot.hpp>

namespace orvane
{

namespace
{

using logging::level::ERR;
using logging::level::INFO;

constexpr uint8_t sideA = 0;

} // namespace

PowerBootOps::PowerBootOps()
{
    SetManageabilityCall([](uint8_t feature, uint8_t value, uint8_t& status) {
        return erot::ErotSetManageabilityFeature(feature, value, &status);
    });
}

void PowerBootOps::RunDbusService(OrvaneSvcState& state)
{
    AddServiceRegistration(RegisterSecureBootStatus);
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
    context.criticalSection = criticalSection;
    warmGood = warm;
}

uint8_t PowerBootOps::activeSide()
{
    uint32_t active = sideA;
    uint32_t pending = sideA;
    bool updateOnReboot = false;
    if (ErotActiveFlashConfigRead(context, &active, &pending,
                                  &updateOnReboot) != 0)
    {
        return sideA;
    }
    return static_cast<uint8_t>(active);
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
    SetSecureBootStatus("InProgress");
    ConsoleLog(INFO) << "=== Start Secure Boot ===";
    PrintDebugTraceLog(context);
    if (Stby_Pwr_on_Sqnc_2_PreRetimer(state, activeSide()) == 0 ||
        Stby_Pwr_on_Sqnc_2(state) == 0)
    {
        ConsoleLog(ERR) << "Standby power sequence 2 error";
        BootFailure(context);
    }
    ConsoleLog(INFO) << "Print DebugTraceLog again.";
    PrintDebugTraceLog(context);
    ConsoleLog(INFO) << "=== end of Secure Boot ===";
}

void PowerBootOps::CollectComponentTimes(ComponentTimes&)
{}

uint32_t PowerBootOps::Stby_Pwr_on_Sqnc_3(OrvaneSvcState& state)
{
    return orvane::Stby_Pwr_on_Sqnc_3(state);
}

bool PowerBootOps::ParallelTask(sem_t* semaphore)
{
    SetSecureBootStatus("Success");
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
