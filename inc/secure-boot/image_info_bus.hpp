#pragma once

#include <array>
#include <string>

namespace sdbus
{
class IConnection;
}

namespace orvane
{

class SecureBootService;

// "xyz.openbmc_project.Orvane.SecureImageInfo." + suffix.
std::string ImageInfoInterface(const std::string& suffix);

// The nine properties of every SecureImageInfo interface, in the order in
// which they are registered and published, with what each reads before the
// first publication.
struct ImageInfoProperty
{
    const char* name;
    const char* initial;
};
inline constexpr std::array<ImageInfoProperty, 9> imageInfoProperties{{
    {"Version", "0x00000000"},
    {"SecurityVersion", "0x00000000"},
    {"SigningKeyId", "0x00000000"},
    {"CustomerId", "0x0000"},
    {"VariantId", "0x0000"},
    {"ComponentDetails", ""},
    {"BKC_Version", "0x00000000"},
    {"KeyRevokeStatus", "NaN"},
    {"SVNRevokeStatus", "NaN"},
}};

// The twelve SecureImageInfo interfaces with their defaults, and the
// anti-rollback methods on the EROT one; run by the D-Bus thread before it
// sets dbusReady. A property that can't be registered is logged and left
// out.
void RegisterSecureImageInfo(sdbus::IConnection& connection);

// The record whose boot context the anti-rollback methods use from now on;
// before it exists they run with a context that holds no semaphore. Safe to
// call while the methods run.
void AttachImageInfoService(SecureBootService* service);

} // namespace orvane
