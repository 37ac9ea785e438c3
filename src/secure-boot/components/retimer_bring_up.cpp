#include "secure-boot/components/retimer_bring_up.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/bpr_table.hpp"
#include "secure-boot/components/fetch_verify.hpp"
#include "secure-boot/power_on_component.hpp"
#include "secure-boot/retimer_reader.hpp"
#include "secure-boot/retimer_update.hpp"
#include "secure-boot/secure_boot_service.hpp"

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::INFO;
using logging::level::WARNING;

constexpr int programmingRounds = 3;

} // namespace

bool BringUpRetimer(SecureBootService& service,
                    const std::shared_ptr<ImageProcessStrategy>& strategy,
                    const std::string& name, FwType id)
{
    if (!FetchAndVerify(service, strategy, name, id))
    {
        return false;
    }
    // Recovery may have turned the component to its other side.
    const uint32_t side = SideOf(*service.bprTable, id);
    for (int round = 0; round < programmingRounds; ++round)
    {
        if (ReadRetimerConfig(*strategy, static_cast<uint8_t>(side), name))
        {
            NvEvent(INFO, "SecureFWVerifySuccess", name, "", "")
                << "Verify " << name << " device successfully.";
            powerOnComponent(service, id);
            return true;
        }
        ConsoleLog(CRITICAL) << "ReadRetimerConfig failed";
        PlainEvent(WARNING, "BundleCheckFailure", "", "", "")
            << "Retimer " << round
            << " Process compare the active image and device image failed. "
               "The hash doesn't compare.";
        NvEvent(INFO, "AutomaticRecoveryTriggered", name, "", "")
            << "Component " << name << " enters auto recovery mode.";
        // The script's outcome shows in the next compare.
        programRetimer(service, *strategy, side, RetimerMux(id));
    }
    ConsoleLog(CRITICAL)
        << "Retimer Hash can't match after 3 times Re-Program!";
    return false;
}

} // namespace orvane
