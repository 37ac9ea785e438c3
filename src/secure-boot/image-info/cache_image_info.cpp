#include "secure-boot/cache_image_info.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/inactive_side.hpp"
#include "secure-boot/publish_image_info.hpp"
#include "secure-boot/secure_boot_service.hpp"

#include <optional>

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::ERR;
using logging::level::INFO;

// The AHDR-shaped blocks of a component without an image pair; null for
// the others.
const AhdrPair* blockPair(const SecureBootService& service, FwType id)
{
    switch (id)
    {
        case FwType::EROT:
            return &service.erotInfo;
        case FwType::APCFG:
            return &service.apcfgInfo;
        case FwType::SMC:
            return &service.smcInfo;
        case FwType::SMC_FPGA:
            return &service.smcFpgaInfo;
        default:
            return nullptr;
    }
}

// Publishes with what the caches know of the component: its manifest entry
// (a version of 0 when there is none) and the eRoT's record, if any.
void publish(SecureBootService& service, const FwNames& names,
             const AhdrHeader& ahdr)
{
    const std::string key(names.cacheKey);
    erot::BkcManifestEntry bkc{};
    if (auto found = service.bkcManifest.find(key);
        found != service.bkcManifest.end())
    {
        bkc = found->second;
    }
    std::optional<erot::ComponentInfo> record;
    {
        std::lock_guard guard(service.lock);
        if (auto found = service.componentInfoByName.find(key);
            found != service.componentInfoByName.end())
        {
            record = found->second;
        }
    }
    PublishImageInfo(static_cast<uint32_t>(names.id), ahdr, bkc,
                     record ? &*record : nullptr);
}

} // namespace

void CacheImageInfo(SecureBootService& service,
                    const std::shared_ptr<ImageProcessStrategy>& strategy,
                    const std::string& key, uint32_t componentId)
{
    ConsoleLog(INFO) << "Start to cache the information from signature...";
    const FwNames* names = FindFwNames(componentId);
    if (names == nullptr)
    {
        ConsoleLog(ERR) << "Unknow FW type when cache to the information "
                           "from signature.";
        return;
    }
    // A component without a boot partition record counts as running on the
    // active side: nothing is read from the inactive one for it.
    const auto& sides = service.bprTable->sides;
    const auto recorded = sides.find(names->id);
    const auto onActive = [&](uint8_t activeSide) {
        return recorded == sides.end() || recorded->second == activeSide;
    };

    if (const AhdrPair* pair = blockPair(service, names->id))
    {
        const bool active = onActive(service.activeSide);
        ConsoleLog(INFO) << "Cache " << key
                         << (active ? " Activate AHDR" : " Inactivate AHDR");
        publish(service, *names, active ? pair->active : pair->inactive);
        return;
    }
    if (!strategy)
    {
        ConsoleLog(CRITICAL) << "Fetch pointer is null, Secure image "
                                "information will not be cached";
        return;
    }
    if (!strategy->Fetch())
    {
        ConsoleLog(INFO) << "Fetch " << key << " image failed!!!";
        return;
    }
    if (onActive(strategy->activeSide))
    {
        ConsoleLog(INFO) << "Cache " << key << " Activate AHDR";
        publish(service, *names, strategy->activeAhdr);
        return;
    }
    if (!initInactiveSide(*strategy, componentId))
    {
        ConsoleLog(INFO) << "Failed to initialize Inactive Side";
        return;
    }
    ConsoleLog(INFO) << "Cache " << key << " Inactivate AHDR";
    publish(service, *names, strategy->inactiveAhdr);
}

} // namespace orvane
