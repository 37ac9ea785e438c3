#include "secure-boot/bkc_manifest.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/erot_calls.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "utils/hex_text.hpp"

#include <map>
#include <mutex>

namespace orvane
{

namespace
{

using logging::level::INFO;

// Process-wide: the update actions of the component threads read them
// long after the service start wrote them.
std::mutex versionLock;
std::map<FwType, uint32_t> versions;

// The key that a manifest entry is filed under; the three retimer
// identifiers share one, so the last of them in the manifest wins.
const FwNames* manifestNames(uint16_t id)
{
    const auto type = static_cast<FwType>(id);
    if (type == FwType::Retimer_1 || type == FwType::Retimer_2)
    {
        return FindFwNames(static_cast<uint32_t>(FwType::Retimer));
    }
    return FindFwNames(id);
}

} // namespace

void ClearBkcManifest(SecureBootService& service)
{
    service.bkcManifest.clear();
    for (const FwNames& names : fwNames)
    {
        service.bkcManifest[std::string(names.cacheKey)] = {
            static_cast<uint16_t>(names.id), 0};
    }
}

bool readBkcManifest(SecureBootService& service)
{
    std::vector<erot::BkcManifestEntry> entries;
    if (!ErotGetBKCManifest(*service.criticalSection, entries))
    {
        return false;
    }
    ConsoleLog(INFO) << "Got " << entries.size() << " entries:";
    for (const erot::BkcManifestEntry& entry : entries)
    {
        ConsoleLog(INFO) << "0x" << HexText(entry.componentId) << "version 0x"
                         << HexText(entry.version);
        const FwNames* names = manifestNames(entry.componentId);
        if (names == nullptr)
        {
            continue;
        }
        service.bkcManifest[std::string(names->cacheKey)] = {
            static_cast<uint16_t>(names->id), entry.version};
        std::lock_guard hold(versionLock);
        versions[static_cast<FwType>(entry.componentId)] = entry.version;
    }
    return true;
}

std::string ManifestVersionText(FwType id)
{
    std::lock_guard hold(versionLock);
    auto found = versions.find(id);
    return "0x" + HexText(found == versions.end() ? 0 : found->second, 8);
}

} // namespace orvane
