#pragma once

#include <string>

namespace sdbus
{
class IConnection;
}

namespace orvane
{

constexpr const char* secureBootStatusInterface =
    "xyz.openbmc_project.Orvane.SecureBoot_Status";

// Publishes `Status` ("Unknown" at first) on the daemon's object; run by the
// D-Bus thread before it sets dbusReady.
void RegisterSecureBootStatus(sdbus::IConnection& connection);

// Sets `Status` through the bus; a failure is logged, never thrown.
void SetSecureBootStatus(const std::string& status);

} // namespace orvane
