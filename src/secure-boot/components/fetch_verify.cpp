#include "secure-boot/components/fetch_verify.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/auto_recovery.hpp"
#include "secure-boot/image_strategy.hpp"

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::ERR;
using logging::level::INFO;
using logging::level::WARNING;

// False when the stored image can't be trusted.
bool FetchedAndVerified(ImageProcessStrategy& strategy, const std::string& name,
                        FwType id)
{
    if (!strategy.Fetch())
    {
        PlainEvent(WARNING, "BundleCheckFailure", "", "", "")
            << "Fetch " << name << " image failed!!!";
        return false;
    }
    NvEvent(INFO, "Update.1.0.1.VerifyingAtComponent", name + ",ERoT", "", "")
        << "ERoT Starts verifying the " << name << " image.";
    if (!strategy.Verify())
    {
        NvEvent(CRITICAL, "Update.1.0.1.VerificationFailed", name + ",ERoT", "",
                "")
            << "Verify " << name << " image failed!!!";
        return false;
    }
    if (id == FwType::IFWI || id == FwType::RM)
    {
        NvEvent(INFO, "SecureFWVerifySuccess", name, "", "")
            << "Verify " << name << " image successfully.";
    }
    return true;
}

} // namespace

bool RecoverComponent(SecureBootService& service,
                      const std::shared_ptr<ImageProcessStrategy>& strategy,
                      const std::string& name, FwType id)
{
    if (autoRecoveryProcess(service, strategy, name, id))
    {
        return true;
    }
    ConsoleLog(ERR) << name << " autoRecoveryProcess fail.";
    return false;
}

bool FetchAndVerify(SecureBootService& service,
                    const std::shared_ptr<ImageProcessStrategy>& strategy,
                    const std::string& name, FwType id)
{
    return FetchedAndVerified(*strategy, name, id) ||
           RecoverComponent(service, strategy, name, id);
}

} // namespace orvane
