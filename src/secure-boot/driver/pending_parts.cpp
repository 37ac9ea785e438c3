// Temporary stand-ins for the parts that land next; each goes when its
// part does.
#include "logging/log_line.hpp"
#include "orvane/standby_stage2.hpp"
#include "secure-boot/auto_recovery.hpp"
#include "secure-boot/bpr_table.hpp"
#include "secure-boot/bring_up.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/retimer_update.hpp"
#include "secure-boot/secure_boot_service.hpp"

namespace orvane
{

bool bringUpComponent(SecureBootService& service,
                      const std::shared_ptr<ImageProcessStrategy>& strategy,
                      const std::string&, FwType id)
{
    if (id == FwType::VR || id == FwType::BUNDLE)
    {
        return true;
    }
    if (id == FwType::UBB_FPGA)
    {
        return strategy->Fetch() &&
               Stby_Pwr_on_Sqnc_2_PreRetimer(
                   *service.state, SideOf(*service.bprTable, id)) != 0;
    }
    return strategy->Fetch() && strategy->Verify();
}

bool autoRecoveryProcess(SecureBootService&,
                         const std::shared_ptr<ImageProcessStrategy>&,
                         const std::string&, FwType)
{
    return false;
}

uint8_t RetimerMux(FwType)
{
    return 0xFF;
}

void programRetimer(SecureBootService&, ImageProcessStrategy&, uint32_t,
                    uint8_t)
{}

bool extractRetimerImage(const std::string&, uint8_t, FwType)
{
    return false;
}

} // namespace orvane
