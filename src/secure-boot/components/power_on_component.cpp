#include "secure-boot/power_on_component.hpp"

#include "logging/log_line.hpp"
#include "orvane/standby_stage2.hpp"
#include "secure-boot/boot_failure.hpp"
#include "secure-boot/bpr_table.hpp"
#include "secure-boot/image_paths.hpp"
#include "secure-boot/secure_boot_service.hpp"

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::ERR;
using logging::level::INFO;

} // namespace

void powerOnComponent(SecureBootService& service, FwType id)
{
    const uint32_t side = SideOf(*service.bprTable, id);
    std::string name;
    for (const ComponentEntry& entry : service.components)
    {
        if (entry.id == id)
        {
            name = entry.name;
        }
    }
    if (!name.empty())
    {
        NvEvent(INFO, "ResourceEvent.1.2.1.ResourcePoweringOn", name, "", "")
            << "The component " << name << " is powering on.";
    }
    if (service.strategySlot(id) == nullptr)
    {
        // Nothing of the boot powers this identifier: it counts as failed,
        // and its record points at the other side for the next look.
        if (service.updateOnReboot)
        {
            NvEvent(CRITICAL, "Update.1.0.1.ActivateFailed", "", ",", name)
                << "The " << name << " power on failure.";
        }
        NvEvent(CRITICAL, "ResourceEvent.1.2.1.ResourceSelfTestFailed",
                name + " secure boot failure", "", "")
            << "The " << name << " power on failure.";
        SetSideOf(*service.bprTable, id,
                  service.activeSide == sideA ? sideB : sideA);
        return;
    }
    if (id != FwType::UBB_FPGA)
    {
        return;
    }
    ConsoleLog(INFO) << "PowerOnUBBFPGA start";
    if (service.state == nullptr ||
        Stby_Pwr_on_Sqnc_2_PreRetimer(*service.state, static_cast<int>(side)) ==
            0)
    {
        ConsoleLog(ERR) << "Standby power sequence 2 error";
        BootFailure(*service.criticalSection);
    }
    ConsoleLog(INFO) << "PowerOnUBBFPGA finish";
}

} // namespace orvane
