#include "secure-boot/skip_path.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/boot_success.hpp"
#include "secure-boot/bpr_table.hpp"
#include "secure-boot/image_info_bus.hpp"
#include "secure-boot/persist_update.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "secure-boot/secure_boot_status.hpp"
#include "secure-boot/service_flags.hpp"
#include "utils/dbus_handler.hpp"
#include "vr-service/oam_vr_updater.hpp"

namespace orvane
{

namespace
{

using logging::level::ERR;
using logging::level::INFO;

} // namespace

bool secureBootFinished(SecureBootService& service)
{
    erot::SmcPersistRecord record{};
    if (!ReadPersist(service, record))
    {
        ConsoleLog(ERR) << " Get_SMC_Persist process error.";
        return false;
    }
    return (record.flags & persist::SECURE_BOOT_FINISHED) != 0;
}

void runSkipPath(SecureBootService& service)
{
    SetSecureBootStatus("Success");
    const auto side = static_cast<int>(SideOf(*service.bprTable, FwType::VR));
    if (!service.oamVrService)
    {
        ConsoleLog(ERR) << "OAM VR Service initialization fail";
    }
    else
    {
        if (!readVrUpdateEnable(service))
        {
            ConsoleLog(ERR) << "Read VR configuration file failed";
        }
        service.runUbbVrUpdate();
        service.oamVrService->RunUpdate(side);
        SetBusProperty(ImageInfoInterface("VR"), "VRFruScanComplete", "1");
    }
    service.recoveredCount = 0;
    ConsoleLog(INFO) << "Skip Secure Boot";
    reportBootMessage("Skip Secure Boot");
}

} // namespace orvane
