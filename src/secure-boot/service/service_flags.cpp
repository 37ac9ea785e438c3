#include "secure-boot/service_flags.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "utils/platform/platform.hpp"
#include "vr-service/oam_vr_updater.hpp"
#include "vr-service/ubb_vr_updater.hpp"

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

// What a flag file says: whether it opened, and its first character ('\0'
// when it holds none).
struct Flag
{
    bool opened = false;
    char first = '\0';
};

Flag ReadFlag(std::string_view path)
{
    std::ifstream file(platform::path(path));
    Flag flag{static_cast<bool>(file), '\0'};
    file.get(flag.first);
    return flag;
}

void SetVrUpdate(SecureBootService& service, bool enable)
{
    for (VrUpdater* updater : std::initializer_list<VrUpdater*>{
             service.oamVrService.get(), service.ubbVrService.get()})
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
    if (ReadFlag(forceBundleUpdateFile).first == '1')
    {
        SetVrUpdate(service, true);
        return true;
    }
    if (!service.oamVrService || !service.ubbVrService)
    {
        ConsoleLog(ERR) << "OAM/VR VR service initialization failed";
        return false;
    }
    const Flag enable = ReadFlag(enableVrUpdateFile);
    if (!enable.opened)
    {
        ConsoleLog(ERR) << "Open the file enable_vrupdate failed";
        SetVrUpdate(service, false);
        return false;
    }
    // Anything but "1" or "0" leaves the setting as it was.
    if (enable.first == '1' || enable.first == '0')
    {
        SetVrUpdate(service, enable.first == '1');
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
