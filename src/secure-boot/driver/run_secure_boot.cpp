// The secure boot driver: the order of the components, what runs beside
// what, and the end of the boot.
#include "logging/log_line.hpp"
#include "orvane/standby_stage2.hpp"
#include "secure-boot/boot_decision.hpp"
#include "secure-boot/boot_failure.hpp"
#include "secure-boot/component_boot.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/retimer_layout.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "secure-boot/secure_boot_status.hpp"
#include "secure-boot/skip_path.hpp"
#include "secure-boot/trace_log.hpp"

namespace orvane
{

namespace
{

using logging::level::ERR;
using logging::level::INFO;

bool isRetimer(FwType id)
{
    return id == FwType::Retimer || id == FwType::Retimer_1 ||
           id == FwType::Retimer_2;
}

// VR, RM, IFWI and BUNDLE all start before any is waited for; RM's update
// waits for VR's inside.
void runComponentThreads(SecureBootService& service)
{
    for (size_t n = 1; n < service.components.size(); ++n)
    {
        const ComponentEntry& entry = service.components[n];
        if (isRetimer(entry.id))
        {
            ConsoleLog(INFO) << "*** The component - " << entry.name
                             << " has already been verified *** ";
            continue;
        }
        service.bootThreads.push_back(std::async(std::launch::async,
                                                 componentBootThread, &service,
                                                 entry.id, entry.name)
                                          .share());
    }
    // No limit: a failed VR leaves RM waiting, and the boot with it.
    for (const std::shared_future<void>& thread : service.bootThreads)
    {
        thread.wait();
    }
}

} // namespace

void SecureBootService::runSecureBoot(OrvaneSvcState& svcState)
{
    SetSecureBootStatus("InProgress");
    if (secureBootFinished(*this))
    {
        runSkipPath(*this);
        return;
    }
    ConsoleLog(INFO) << "=== Start Secure Boot ===";
    PrintDebugTraceLog(*criticalSection);
    state = &svcState;
    bootOnMainThread(
        *this,
        CreateImageStrategy(*this, static_cast<uint32_t>(FwType::UBB_FPGA)),
        "UBB_FPGA", FwType::UBB_FPGA);
    bootRetimers(*this);
    if (Stby_Pwr_on_Sqnc_2(svcState) == 0)
    {
        ConsoleLog(ERR) << "Standby power sequence 2 error";
        BootFailure(*criticalSection);
    }
    runComponentThreads(*this);
    finishSecureBoot(*this);
}

void SecureBootService::getComponentTimes(ComponentTimes& times) const
{
    std::lock_guard<std::mutex> hold(lock);
    times = bootTimes;
}

} // namespace orvane
