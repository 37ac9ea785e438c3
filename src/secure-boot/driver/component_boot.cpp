#include "secure-boot/component_boot.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/boot_failure.hpp"
#include "secure-boot/bpr_table.hpp"
#include "secure-boot/bring_up.hpp"
#include "secure-boot/cache_image_info.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/persist_update.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "utils/platform/platform.hpp"
#include "vr-service/oam_vr_updater.hpp"

#include <chrono>

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::INFO;
using Steady = std::chrono::steady_clock::time_point;

// The failover bit that a success clears. The main thread clears the UBB
// FPGA's bit for Retimer_1 and Retimer_2 too: kept as the board's boots
// have always done it.
uint8_t mainThreadBit(FwType id)
{
    return id == FwType::Retimer ? persist::FAILOVER_RETIMER
                                 : persist::FAILOVER_UBB_FPGA;
}

uint8_t threadBit(FwType id)
{
    return id == FwType::RM ? persist::FAILOVER_RM : persist::FAILOVER_IFWI;
}

void recordTime(SecureBootService& service, const std::string& name,
                Steady start)
{
    const double seconds =
        static_cast<double>(
            std::chrono::duration_cast<std::chrono::nanoseconds>(
                platform::clock().steadyNow() - start)
                .count()) /
        1000000000.0;
    ConsoleLog(INFO) << "*** The component - " << name << " boot up took "
                     << seconds << "sec *** ";
    std::lock_guard<std::mutex> hold(service.lock);
    service.bootTimes[name] = seconds;
}

void reportNullStrategy()
{
    ConsoleLog(CRITICAL) << "Fetch nullptr, no do the secure boot up process.";
}

// Powered on, its family's failover bit cleared, its image published.
void reportBooted(SecureBootService& service,
                  const std::shared_ptr<ImageProcessStrategy>& strategy,
                  const std::string& name, FwType id, uint8_t failoverBit)
{
    NvEvent(INFO, "ResourceEvent.1.2.1.ResourcePoweredOn", name, "", "")
        << "The secure boot of the component " << name << " is completed.";
    UpdatePersist(service, name, [failoverBit](erot::SmcPersistRecord& record) {
        auto* bytes = reinterpret_cast<uint8_t*>(&record);
        bytes[persist::failoverByte] &= static_cast<uint8_t>(~failoverBit);
    });
    CacheImageInfo(service, strategy, name, static_cast<uint32_t>(id));
}

// The image that failed, as the update service knows it.
std::string failedImage(const SecureBootService& service,
                        const ImageProcessStrategy& strategy, FwType id)
{
    const bool active = SideOf(*service.bprTable, id) == service.activeSide;
    if (id == FwType::UBB_FPGA)
    {
        return active ? strategy.activeDumpPath : strategy.inactiveDumpPath;
    }
    return active ? strategy.activeImagePath : strategy.inactiveImagePath;
}

void reportFailure(SecureBootService& service,
                   const std::shared_ptr<ImageProcessStrategy>& strategy,
                   const std::string& name, FwType id)
{
    const std::string text = "The " + name +
                             " can't be powered on because of image has "
                             "been tampered with.";
    if (service.updateOnReboot)
    {
        NvEvent(CRITICAL, "Update.1.0.1.ActivateFailed",
                failedImage(service, *strategy, id), ",", name)
            << text;
    }
    NvEvent(CRITICAL, "ResourceEvent.1.2.1.ResourceSelfTestFailed",
            name + " secure boot failure", "", "")
        << text;
    service.bootFailureState = 5;
    CacheImageInfo(service, strategy, name, static_cast<uint32_t>(id));
}

} // namespace

void bootOnMainThread(SecureBootService& service,
                      const std::shared_ptr<ImageProcessStrategy>& strategy,
                      const std::string& name, FwType id)
{
    ConsoleLog(INFO) << "Secure Verifying " << name;
    const Steady start = platform::clock().steadyNow();
    if (!strategy)
    {
        reportNullStrategy();
    }
    else if (bringUpComponent(service, strategy, name, id))
    {
        reportBooted(service, strategy, name, id, mainThreadBit(id));
    }
    else
    {
        reportFailure(service, strategy, name, id);
        BootFailure(*service.criticalSection);
    }
    recordTime(service, name, start);
}

void componentBootThread(SecureBootService* service, FwType id,
                         const std::string& name)
{
    std::shared_ptr<ImageProcessStrategy> strategy =
        CreateImageStrategy(*service, static_cast<uint32_t>(id));
    ConsoleLog(INFO) << "Secure Verifying ComponentID : "
                     << static_cast<uint32_t>(id)
                     << ", ComponentName : " << name << "\n";
    const Steady start = platform::clock().steadyNow();
    if (!strategy)
    {
        reportNullStrategy();
        recordTime(*service, name, start);
        return;
    }
    const bool booted = bringUpComponent(*service, strategy, name, id);
    if (id == FwType::BUNDLE)
    {
        // The bundle has no device: what it fetched is only published.
        CacheImageInfo(*service, strategy, name, static_cast<uint32_t>(id));
        return;
    }
    if (!booted)
    {
        reportFailure(*service, strategy, name, id);
        return;
    }
    if (id == FwType::VR)
    {
        // The regulators took time only when they were looked at.
        if (service->oamVrService && service->oamVrService->enableVrUpdate)
        {
            recordTime(*service, name, start);
        }
        return;
    }
    reportBooted(*service, strategy, name, id, threadBit(id));
    recordTime(*service, name, start);
}

} // namespace orvane
