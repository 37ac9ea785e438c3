#include "secure-boot/secure_boot_service.hpp"

#include "logging/log_line.hpp"
#include "orvane/standby_stage2.hpp"
#include "secure-boot/boot_failure.hpp"
#include "secure-boot/erot_calls.hpp"
#include "secure-boot/secure_boot_status.hpp"
#include "secure-boot/trace_log.hpp"

namespace orvane
{

namespace
{

using logging::level::ERR;
using logging::level::INFO;

constexpr uint8_t sideA = 0;

} // namespace

SecureBootService::SecureBootService(sem_t* criticalSection, bool warmGood) :
    warmGood(warmGood)
{
    context.criticalSection = criticalSection;
}

uint8_t SecureBootService::activeSide()
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

void SecureBootService::runUbbVrUpdate()
{}

void SecureBootService::runSecureBoot(OrvaneSvcState& state)
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

void SecureBootService::getComponentTimes(ComponentTimes&) const
{}

bool SecureBootService::parallelTask(sem_t* semaphore)
{
    SetSecureBootStatus("Success");
    sem_post(semaphore);
    ConsoleLog(INFO) << "*** Leave Boot Critical Section. ***";
    return true;
}

} // namespace orvane
