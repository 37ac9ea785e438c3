#include "secure-boot/bring_up.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/components/ifwi_update.hpp"
#include "secure-boot/components/retimer_bring_up.hpp"
#include "secure-boot/components/rm_update.hpp"
#include "secure-boot/components/ubb_fpga_bring_up.hpp"
#include "secure-boot/components/vr_bring_up.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/secure_boot_service.hpp"

namespace orvane
{

namespace
{

bool BringUpBundle(ImageProcessStrategy& strategy, const std::string& name)
{
    if (strategy.Fetch())
    {
        return true;
    }
    PlainEvent(logging::level::WARNING, "BundleCheckFailure", "", "", "")
        << "Fetch " << name << " image failed!!!";
    return false;
}

} // namespace

bool bringUpComponent(SecureBootService& service,
                      const std::shared_ptr<ImageProcessStrategy>& strategy,
                      const std::string& name, FwType id)
{
    if (auto* slot = service.strategySlot(id))
    {
        *slot = strategy;
    }
    if (id == FwType::VR)
    {
        return BringUpVr(service);
    }
    if (!strategy)
    {
        return service.strategySlot(id) == nullptr;
    }
    if (strategy->bootContext == nullptr)
    {
        strategy->bootContext = service.criticalSection.get();
    }
    switch (id)
    {
        case FwType::Retimer:
        case FwType::Retimer_1:
        case FwType::Retimer_2:
            return BringUpRetimer(service, strategy, name, id);
        case FwType::UBB_FPGA:
            return BringUpUbbFpga(service, strategy, name, id);
        case FwType::IFWI:
            return BringUpIfwi(service, strategy, name, id);
        case FwType::RM:
            return BringUpRm(service, strategy, name, id);
        case FwType::BUNDLE:
            return BringUpBundle(*strategy, name);
        default:
            return true;
    }
}

} // namespace orvane
