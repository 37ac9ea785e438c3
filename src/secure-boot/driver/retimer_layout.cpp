#include "secure-boot/retimer_layout.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/auto_recovery.hpp"
#include "secure-boot/bpr_table.hpp"
#include "secure-boot/component_boot.hpp"
#include "secure-boot/image_paths.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/retimer_update.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "secure-boot/service_flags.hpp"
#include "utils/platform/platform.hpp"

#include <filesystem>

namespace orvane
{

namespace
{

using logging::level::ERR;
using logging::level::INFO;

void logSkip(const char* layout, const ComponentEntry& entry)
{
    ConsoleLog(INFO) << "Detected " << layout
                     << ". Skip BootUp Flow for ComponentID : "
                     << static_cast<uint32_t>(entry.id)
                     << ", ComponentName : " << entry.name << "\n";
}

void bootEntry(SecureBootService& service, const ComponentEntry& entry)
{
    bootOnMainThread(
        service, CreateImageStrategy(service, static_cast<uint32_t>(entry.id)),
        entry.name, entry.id);
}

// A manual update left the image of this retimer pair in an archive only:
// take it out and program the retimers with it before they are compared.
bool extractAndProgram(SecureBootService& service, const ComponentEntry& entry,
                       const std::string& stem)
{
    if (!extractRetimerImage(stem, service.activeSide, entry.id))
    {
        return false;
    }
    std::shared_ptr<ImageProcessStrategy> strategy =
        CreateImageStrategy(service, static_cast<uint32_t>(entry.id));
    if (!strategy->Fetch() &&
        !autoRecoveryProcess(service, strategy, entry.name, entry.id))
    {
        ConsoleLog(ERR) << entry.name << " autoRecoveryProcess failed.";
        return false;
    }
    programRetimer(service, *strategy, SideOf(*service.bprTable, entry.id),
                   RetimerMux(entry.id));
    if (entry.id == FwType::Retimer_2)
    {
        writeManualRetimerUpdate(false);
    }
    return true;
}

void bootRetimerPair(SecureBootService& service, const ComponentEntry& entry)
{
    const std::string stem(FindFwNames(static_cast<uint32_t>(entry.id))->stem);
    const uint32_t id = static_cast<uint32_t>(entry.id);
    ConsoleLog(INFO)
        << "Verifying presence of Retimer image in SMC storage area for "
           "ComponentID: "
        << id;
    if (ImagePairExists(service.activeSide, stem))
    {
        ConsoleLog(INFO) << "Retimer image present for ComponentID : " << id;
    }
    else
    {
        ConsoleLog(INFO) << "Retimer image not found for ComponentID: " << id
                         << ", ComponentName: " << entry.name;
        ConsoleLog(INFO) << "Proceeding with manual image extraction and copy";
        if (!extractAndProgram(service, entry, stem))
        {
            return;
        }
    }
    bootEntry(service, entry);
}

void removeIfPresent(const std::string& path)
{
    std::error_code error;
    std::filesystem::remove(platform::path(path), error);
}

} // namespace

void bootRetimers(SecureBootService& service)
{
    const bool manualRetimer = readManualRetimerUpdate();
    bool singleImage = ImagePairExists(service.activeSide, "retimer");
    for (const ComponentEntry& entry : service.components)
    {
        if (entry.id == FwType::Retimer)
        {
            if (!singleImage)
            {
                logSkip("Dual Retimer Config", entry);
            }
            else if (manualRetimer)
            {
                // The first update of a single-image SMC to two images:
                // the pairs below take over from the one image.
                logSkip("First update with Dual Retimer SMC", entry);
                removeIfPresent(
                    SidePath(imageRoot, service.activeSide, "retimer.bin"));
                removeIfPresent(
                    SidePath(imageRoot, service.activeSide, "retimer.ahdr"));
                singleImage = false;
            }
            else
            {
                bootEntry(service, entry);
            }
        }
        else if (entry.id == FwType::Retimer_1 || entry.id == FwType::Retimer_2)
        {
            if (singleImage)
            {
                logSkip("Single Retimer Config", entry);
            }
            else
            {
                bootRetimerPair(service, entry);
            }
        }
    }
}

} // namespace orvane
