#include "secure-boot/components/rm_update.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/bpr_table.hpp"
#include "secure-boot/components/component_images.hpp"
#include "secure-boot/components/fetch_verify.hpp"
#include "secure-boot/components/vr_gate.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/power_on_component.hpp"
#include "secure-boot/rm_hash.hpp"
#include "secure-boot/secure_boot_board.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "utils/platform/platform.hpp"

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::INFO;
using logging::level::WARNING;

constexpr size_t rmCommandRoom = 256;
constexpr int rounds = 3;

// Compares and re-programs with the VR update over and the gate held, so
// that the RMs are not written while their regulators change.
bool MatchRm(SecureBootService& service, ImageProcessStrategy& strategy,
             uint32_t side, const std::string& version)
{
    const std::string& path = ImageOfSide(strategy, side);
    for (int round = 0; round < rounds; ++round)
    {
        if (CheckRmHash(service, path))
        {
            ConsoleLog(INFO) << "Verify RM SHA256 success, skip update RM.";
            return true;
        }
        ConsoleLog(INFO) << "RM retries the " << round << " time update.";
        if (round == 0 && service.updateOnReboot)
        {
            ConsoleLog(INFO) << "Update RM (updateOnReboot=true)";
        }
        else if (round == 0)
        {
            PlainEvent(WARNING, "BundleCheckFailure", "", "", "")
                << "One or more of the RM hash does not match with the RM in "
                   "SMC storage. Updating RM with image in active SMC "
                   "parition";
            NvEvent(INFO, "AutomaticRecoveryTriggered", "RM", "", "")
                << "Component RM enters auto recovery mode.";
        }
        if (updateRm(path, version))
        {
            NvEvent(INFO, "FirmwareUpdateCompleted", "RM", ",", version)
                << "Update RMC device successfully.";
        }
        else
        {
            NvEvent(WARNING, "FirmwareUpdateFailed", "RM", ",", version)
                << "Failed to update RMC device.";
        }
        platform::sleepSeconds(2);
    }
    ConsoleLog(CRITICAL) << "RM Hash can't match after " << rounds
                         << " times Re-Program!";
    return false;
}

} // namespace

bool updateRm(const std::string& path, const std::string& version)
{
    if (RunTool(std::string(secure_boot_board::rmTool) + " " + path + " " +
                    version,
                rmCommandRoom) != 0)
    {
        return false;
    }
    NvEvent(INFO, "Update.1.0.1.UpdateSuccessful", "RM", ",", path)
        << "RMC update successfully with image " << path;
    return true;
}

bool BringUpRm(SecureBootService& service,
               const std::shared_ptr<ImageProcessStrategy>& strategy,
               const std::string& name, FwType id)
{
    if (!FetchAndVerify(service, strategy, name, id))
    {
        return false;
    }
    const uint32_t side = SideOf(*service.bprTable, id);
    const std::string version = SideVersionText(*strategy, side);

    std::unique_lock<std::mutex> held(vrGate().mutex);
    // No limit: a VR update that failed leaves the boot here for good.
    vrGate().changed.wait(held, [] { return vrGate().vrFinished; });
    const bool matched = MatchRm(service, *strategy, side, version);
    held.unlock();
    vrGate().changed.notify_all();
    if (matched)
    {
        powerOnComponent(service, id);
    }
    return matched;
}

} // namespace orvane
