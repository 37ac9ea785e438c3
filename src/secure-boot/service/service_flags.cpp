#include "secure-boot/service_flags.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "utils/platform/platform.hpp"
#include "vr-service/vr_updater.hpp"

#include <fstream>
#include <string>
#include <string_view>

namespace orvane
{

namespace
{

using logging::level::ERR;

constexpr std::string_view forceBundleUpdateFile =
    "/var/lib/orvane/force_bundleupdate";
constexpr std::string_view enableVrUpdateFile =
    "/var/lib/orvane/enable_vrupdate";
constexpr std::string_view manualRetimerUpdateFile =
    "/var/lib/orvane/retimer_images/enable_manual_retimer_update";

// The first character of a flag file; empty when it can't be opened or
// holds nothing.
bool FirstCharacter(std::string_view path, bool& opened, char& first)
{
    std::ifstream file(platform::path(path));
    opened = static_cast<bool>(file);
    first = '\0';
    return opened && file.get(first);
}

void SetVrUpdate(SecureBootService& service, bool enable)
{
    for (VrUpdater* updater :
         {service.oamVrService.get(), service.ubbVrService.get()})
    {
        if (updater != nullptr)
        {
            updater->enableVrUpdate = enable;
        }
    }
}

} // namespace

bool readVrUpdateEnable(SecureBootService& service)
{
    bool opened = false;
    char first = '\0';
    if (FirstCharacter(forceBundleUpdateFile, opened, first) && first == '1')
    {
        SetVrUpdate(service, true);
        return true;
    }
    if (!service.oamVrService || !service.ubbVrService)
    {
        ConsoleLog(ERR) << "OAM/VR VR service initialization failed";
        return false;
    }
    FirstCharacter(enableVrUpdateFile, opened, first);
    if (!opened)
    {
        ConsoleLog(ERR) << "Open the file enable_vrupdate failed";
        SetVrUpdate(service, false);
        return false;
    }
    // Anything but "1" or "0" leaves the setting as it was.
    if (first == '1' || first == '0')
    {
        SetVrUpdate(service, first == '1');
    }
    return true;
}

bool readManualRetimerUpdate()
{
    std::ifstream file(platform::path(manualRetimerUpdateFile));
    std::string line;
    return std::getline(file, line) && line == "1";
}

void writeManualRetimerUpdate(bool enable)
{
    std::ofstream file(platform::path(manualRetimerUpdateFile),
                       std::ios::trunc);
    file << (enable ? "1" : "0") << "\n";
    if (!file)
    {
        ConsoleLog(ERR) << "Failed to write " << manualRetimerUpdateFile;
    }
}

} // namespace orvane
