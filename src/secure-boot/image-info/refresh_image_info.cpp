#include "secure-boot/refresh_image_info.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/cache_image_info.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/revocation_report.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "utils/hex_text.hpp"

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::ERR;

constexpr uint8_t keyRevocationFailed = 1;
constexpr uint8_t keyRevoked = 2;

// False, with its line, when the component has no strategy to read it.
bool cacheWithStrategy(SecureBootService& service, FwType id,
                       const std::string& name)
{
    auto strategy = CreateImageStrategy(service, static_cast<uint32_t>(id));
    if (!strategy)
    {
        ConsoleLog(CRITICAL) << "Fetch pointer is null, Secure image "
                                "information will not be cached";
        return false;
    }
    CacheImageInfo(service, strategy, name, static_cast<uint32_t>(id));
    return true;
}

// The bundle is published by its own check, not here.
bool cacheRecord(SecureBootService& service, FwType id, const std::string& name)
{
    switch (id)
    {
        case FwType::BUNDLE:
            return true;
        case FwType::EROT:
        case FwType::SMC:
        case FwType::SMC_FPGA:
        case FwType::APCFG:
            CacheImageInfo(service, nullptr, name, static_cast<uint32_t>(id));
            return true;
        default:
            return cacheWithStrategy(service, id, name);
    }
}

// False when the record ends here: a revoked key whose new bundle can't be
// read.
bool reportKey(SecureBootService& service, const erot::ComponentInfo& record,
               const std::string& name)
{
    const uint8_t status = record.keyRevocationStatus;
    if (status == keyRevocationFailed)
    {
        RaiseRevocationEvent("RevocationFailedOEM", name, "KeyID", record.keyId,
                             "", " key revocation failed");
    }
    else if (status == keyRevoked)
    {
        RaiseRevocationEvent("RevocationSuccessOEM", name, "KeyID",
                             record.keyId, "", " key revocation success");
        if (!cacheWithStrategy(service, FwType::BUNDLE, "BUNDLE"))
        {
            return false;
        }
    }
    const std::string_view state = RevocationState(status);
    if (state.empty())
    {
        ConsoleLog(ERR) << "Unknown key Status:" << HexText(status);
        return true;
    }
    RaiseRevocationEvent("RevocationStateOEM", name, "KeyID", record.keyId,
                         state, " key " + std::string(state));
    return true;
}

void reportSvn(const erot::ComponentInfo& record, const std::string& name)
{
    const std::string_view state = RevocationState(record.svnRevocationStatus);
    if (state.empty())
    {
        ConsoleLog(ERR) << "Unknown SVN Status:"
                        << HexText(record.svnRevocationStatus);
        return;
    }
    RaiseRevocationEvent("RevocationStateOEM", name, "SVN", record.svn, state,
                         " svn " + std::string(state));
}

} // namespace

std::vector<erot::ComponentInfo> RefreshImageInfo(SecureBootService& service)
{
    std::vector<erot::ComponentInfo> records =
        ReadComponentInfoOrHalt(*service.criticalSection);
    for (const erot::ComponentInfo& record : records)
    {
        const FwNames* names = FindFwNames(record.componentId);
        if (record.active == 0 || names == nullptr)
        {
            continue;
        }
        {
            std::lock_guard guard(service.lock);
            service.componentInfoByName[std::string(names->cacheKey)] = record;
        }
        const std::string name(names->text);
        if (cacheRecord(service, names->id, name) &&
            reportKey(service, record, name))
        {
            reportSvn(record, name);
        }
    }
    return records;
}

} // namespace orvane
