#include "secure-boot/secure_boot_service.hpp"

#include "logging/log_line.hpp"
#include "orvane/standby_stage2.hpp"
#include "secure-boot/boot_failure.hpp"
#include "secure-boot/erot_calls.hpp"
#include "secure-boot/image_paths.hpp"
#include "secure-boot/secure_boot_status.hpp"
#include "secure-boot/trace_log.hpp"

namespace orvane
{

namespace
{

using logging::level::ERR;
using logging::level::INFO;

} // namespace

std::vector<ComponentEntry> DriverComponents()
{
    std::vector<ComponentEntry> entries;
    for (FwType id : {FwType::UBB_FPGA, FwType::Retimer, FwType::Retimer_1,
                      FwType::Retimer_2, FwType::VR, FwType::RM, FwType::IFWI,
                      FwType::BUNDLE})
    {
        entries.push_back(
            {std::string(FindFwNames(static_cast<uint32_t>(id))->text), id,
             false});
    }
    return entries;
}

SecureBootService::SecureBootService(sem_t* semaphore, bool warmGood) :
    components(DriverComponents()),
    criticalSection(std::make_shared<BootContext>()),
    bprTable(std::make_shared<BprTable>()),
    persist(std::make_shared<erot::SmcPersistRecord>()), warmGood(warmGood)
{
    criticalSection->criticalSection = semaphore;
}

uint8_t SecureBootService::readActiveSide()
{
    uint32_t active = sideA;
    uint32_t pending = sideA;
    bool updateOnReboot = false;
    if (ErotActiveFlashConfigRead(*criticalSection, &active, &pending,
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
    PrintDebugTraceLog(*criticalSection);
    if (Stby_Pwr_on_Sqnc_2_PreRetimer(state, readActiveSide()) == 0 ||
        Stby_Pwr_on_Sqnc_2(state) == 0)
    {
        ConsoleLog(ERR) << "Standby power sequence 2 error";
        BootFailure(*criticalSection);
    }
    ConsoleLog(INFO) << "Print DebugTraceLog again.";
    PrintDebugTraceLog(*criticalSection);
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
