#include "secure-boot/components/ifwi_update.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/bpr_table.hpp"
#include "secure-boot/components/component_images.hpp"
#include "secure-boot/components/fetch_verify.hpp"
#include "secure-boot/ifwi_reader.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/power_on_component.hpp"
#include "secure-boot/secure_boot_board.hpp"
#include "secure-boot/secure_boot_service.hpp"

#include <iostream>

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::INFO;
using logging::level::WARNING;

constexpr size_t ifwiCommandRoom = 256;
constexpr int attempts = 3;

// Why the devices are programmed: a repair unless an update was staged.
void Announce(bool updateOnReboot, const char* mismatch)
{
    if (updateOnReboot)
    {
        ConsoleLog(INFO) << "Update IFWI FW (updateOnReboot=true)";
        return;
    }
    PlainEvent(WARNING, "BundleCheckFailure", "", "", "") << mismatch;
    NvEvent(INFO, "AutomaticRecoveryTriggered", "IFWI", "", "")
        << "Component IFWI enters auto recovery mode.";
}

// Up to three programmings; `settled` says whether one took.
template <typename Check>
bool Program(ImageProcessStrategy& strategy, uint32_t side, Check settled)
{
    for (int attempt = 1; attempt <= attempts; ++attempt)
    {
        if (attempt > 1)
        {
            ConsoleLog(INFO) << "Retry updating IFWI, attempt #" << attempt;
        }
        if (flashIfwi(strategy, side, ImageOfSide(strategy, side)) && settled())
        {
            return true;
        }
    }
    return false;
}

} // namespace

bool flashIfwi(ImageProcessStrategy& strategy, uint32_t side,
               const std::string& path)
{
    const std::string version = SideVersionText(strategy, side);
    std::cout << "In The ImageProcessStrategy::UpdateIFWI()." << std::endl;
    NvEvent(INFO, "FirmwareUpdateStarted", "IFWI", ",", version)
        << "Start IFWI firmware update.";
    return RunTool(std::string(secure_boot_board::ifwiTool) + " " + path + " " +
                       version,
                   ifwiCommandRoom) == 0;
}

bool updateIfwi(ImageProcessStrategy& strategy, uint32_t side,
                bool updateOnReboot)
{
    bool done = false;
    if (!ReadIFWIImage(strategy))
    {
        Announce(updateOnReboot,
                 "All IFWI firmware are not equal. Do update IFWI with active "
                 "image from SMC storage.");
        done = Program(strategy, side, [&] { return ReadIFWIImage(strategy); });
    }
    else
    {
        const bool same = side == strategy.activeSide
                              ? CompareIfwiWithActive(strategy)
                              : CompareIfwiWithInactive(strategy);
        if (same)
        {
            return true;
        }
        Announce(updateOnReboot,
                 "One or more of the IFWI hash does not match with the IFWI "
                 "in SMC storage. Updating IFWI with image in active SMC "
                 "parition");
        // The devices agreed before: the tool's success is taken as is.
        done = Program(strategy, side, [] { return true; });
    }
    if (done)
    {
        return true;
    }
    NvEvent(WARNING, "FirmwareUpdateFailed", "IFWI", ",",
            SideVersionText(strategy, side))
        << "The IFWI is update error the " << attempts << " time.";
    ConsoleLog(WARNING) << "The IFWI contents not matching after retries.";
    return false;
}

bool BringUpIfwi(SecureBootService& service,
                 const std::shared_ptr<ImageProcessStrategy>& strategy,
                 const std::string& name, FwType id)
{
    if (!FetchAndVerify(service, strategy, name, id))
    {
        return false;
    }
    const uint32_t side = SideOf(*service.bprTable, id);
    if (!updateIfwi(*strategy, side, service.updateOnReboot))
    {
        NvEvent(CRITICAL, "Update.1.0.1.VerificationFailed", name + ",ERoT", "",
                "")
            << "Verify " << name << " device failed!!!";
        return false;
    }
    NvEvent(INFO, "SecureFWVerifySuccess", name, "", "")
        << "Verify " << name << " device successfully.";
    powerOnComponent(service, id);
    return true;
}

} // namespace orvane
