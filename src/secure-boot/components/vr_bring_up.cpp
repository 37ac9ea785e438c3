#include "secure-boot/components/vr_bring_up.hpp"

#include "logging/log_line.hpp"
#include "orvane/standby_power_off.hpp"
#include "orvane/standby_stage2.hpp"
#include "secure-boot/bpr_table.hpp"
#include "secure-boot/components/vr_gate.hpp"
#include "secure-boot/image_info_bus.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "secure-boot/service_flags.hpp"
#include "utils/dbus_handler.hpp"
#include "vr-service/oam_vr_updater.hpp"

namespace orvane
{

namespace
{

using logging::level::ERR;
using logging::level::INFO;

void PublishScanComplete()
{
    SetBusProperty(ImageInfoInterface("VR"), "VRFruScanComplete", "1");
}

} // namespace

bool BringUpVr(SecureBootService& service)
{
    std::unique_lock<std::mutex> held(vrGate().mutex);
    if (!readVrUpdateEnable(service))
    {
        ConsoleLog(INFO) << "Read VR enable/disable failed, disable VR update";
        FinishVr(held);
        PublishScanComplete();
        return true;
    }
    const uint32_t side = SideOf(*service.bprTable, FwType::VR);
    // A failed power step leaves the gate shut: RM must not touch modules
    // whose regulators are in an unknown state.
    if (service.state == nullptr || VrPowerOnForUpdate(*service.state) == 0)
    {
        ConsoleLog(ERR) << "VR VRComponentInit failed";
        return false;
    }
    if (service.oamVrService)
    {
        service.oamVrService->RunUpdate(static_cast<int>(side));
    }
    if (!DisableUbbHotswaps(*service.state))
    {
        ConsoleLog(ERR) << "VR VRComponentDeInit failed";
        return false;
    }
    PublishScanComplete();
    FinishVr(held);
    return true;
}

} // namespace orvane
