#include "secure-boot/secure_boot_service.hpp"

#include "logging/log_line.hpp"
#include "orvane/standby_stage2.hpp"
#include "secure-boot/boot_failure.hpp"
#include "secure-boot/erot_calls.hpp"
#include "secure-boot/image_paths.hpp"
#include "secure-boot/secure_boot_status.hpp"
#include "secure-boot/service_flags.hpp"
#include "secure-boot/trace_log.hpp"
#include "utils/platform/platform.hpp"
#include "vr-service/oam_vr_updater.hpp"
#include "vr-service/ubb_vr_updater.hpp"

#include <cstdlib>

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
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

SecureBootService::SecureBootService(sem_t* semaphore, bool hostPowerOn,
                                     RecordOnly) :
    components(DriverComponents()),
    criticalSection(std::make_shared<BootContext>()),
    bprTable(std::make_shared<BprTable>()),
    persist(std::make_shared<erot::SmcPersistRecord>()),
    hostPowerOn(hostPowerOn)
{
    criticalSection->criticalSection = semaphore;
    ubbVrService = std::make_shared<UbbVrUpdater>(semaphore, hostPowerOn);
    oamVrService = std::make_shared<OamVrUpdater>(semaphore, hostPowerOn);
}

SecureBootService::SecureBootService(sem_t* semaphore, bool hostPowerOn) :
    SecureBootService(semaphore, hostPowerOn, recordOnly)
{
    start();
}

SecureBootService::~SecureBootService()
{
    std::free(componentInfo);
}

std::shared_ptr<ImageProcessStrategy>* SecureBootService::strategySlot(
    FwType id)
{
    switch (id)
    {
        case FwType::VR:
            return &vrStrategy;
        case FwType::UBB_FPGA:
            return &ubbFpgaStrategy;
        case FwType::Retimer:
            return &retimerStrategy;
        case FwType::Retimer_1:
            return &retimer1Strategy;
        case FwType::Retimer_2:
            return &retimer2Strategy;
        case FwType::RM:
            return &rmStrategy;
        case FwType::IFWI:
            return &ifwiStrategy;
        case FwType::BUNDLE:
            return &bundleStrategy;
        default:
            return nullptr;
    }
}

void SecureBootService::runUbbVrUpdate()
{
    auto found = bprTable->sides.find(FwType::VR);
    const int side = found == bprTable->sides.end() ? 0 : found->second;
    if (!ubbVrService)
    {
        ConsoleLog(ERR) << "UBB VR Service initialization fail";
        return;
    }
    if (!readVrUpdateEnable(*this))
    {
        ConsoleLog(ERR) << "Read VR configuration file failed";
    }
    if (!ubbVrService->ScanUbbFru())
    {
        ConsoleLog(ERR) << "*** Failed UBB VR Update process ***";
        return;
    }
    ubbVrService->RunUpdate(side);
    if (!ubbVrService->IsProgrammed())
    {
        return;
    }
    // New regulator settings take effect only after a power cycle of the
    // whole board: nothing else may run until then.
    ConsoleLog(INFO)
        << "One or more UBB VR's got updated , please AC cycle the system";
    NvEvent(CRITICAL, "Update.1.0.1.UpdateSuccessful",
            "UBB VR got updated, please AC cycle the system ", ",",
            "No other operation is permitted");
    while (true)
    {
        platform::sleepSeconds(10);
    }
}

} // namespace orvane
