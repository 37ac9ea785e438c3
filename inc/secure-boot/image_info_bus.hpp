#pragma once

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

// The twelve SecureImageInfo interfaces with their defaults, and the
// anti-rollback methods on the EROT one; run by the D-Bus thread before it
// sets dbusReady. A property that can't be registered is logged and left
// out.
void RegisterSecureImageInfo(sdbus::IConnection& connection);

// The record that the anti-rollback methods work with, once it exists;
// before that they answer with the eRoT calls alone.
void AttachImageInfoService(SecureBootService* service);

} // namespace orvane
