#include "secure-boot/components/ubb_fpga_bring_up.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/bkc_manifest.hpp"
#include "secure-boot/components/component_images.hpp"
#include "secure-boot/components/fetch_verify.hpp"
#include "secure-boot/image_paths.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/power_on_component.hpp"
#include "secure-boot/secure_boot_board.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "secure-boot/ubb_fpga_check.hpp"
#include "utils/platform/platform.hpp"

#include <filesystem>

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::ERR;
using logging::level::INFO;
using logging::level::WARNING;

constexpr size_t ubbFpgaCommandRoom = 512;

} // namespace

bool runUbbFpgaPostUpdate()
{
    ConsoleLog(INFO) << "*** Do Post Update UBB FPGA ***";
    for (uint8_t side : {sideA, sideB})
    {
        const std::string path = SidePath(imageRoot, side, "ubb-fpga.bin");
        if (!platform::exists(path))
        {
            continue;
        }
        const char letter = side == sideA ? 'A' : 'B';
        ConsoleLog(INFO) << "*** The UBB Image is in /var/lib/images/" << letter
                         << ", starts programming it. ***";
        const int status = RunTool(std::string(secure_boot_board::ubbFpgaTool) +
                                       " " + path + " " + letter + " " +
                                       ManifestVersionText(FwType::UBB_FPGA),
                                   ubbFpgaCommandRoom);
        if (status != 0)
        {
            ConsoleLog(CRITICAL)
                << "ubb-fpga update failed with return code: " << status;
            return false;
        }
        NvEvent(INFO, "Update.1.0.1.UpdateSuccessful", "UBB_FPGA", ",", path)
            << "ubb-fpga update successfully.";
        std::error_code ignored;
        std::filesystem::remove(platform::path(path), ignored);
    }
    return true;
}

bool BringUpUbbFpga(SecureBootService& service,
                    const std::shared_ptr<ImageProcessStrategy>& strategy,
                    const std::string& name, FwType id)
{
    if (!runUbbFpgaPostUpdate())
    {
        ConsoleLog(ERR) << name << " Do post update UBBFPGA failed!!!";
        return false;
    }
    if (!strategy->Fetch())
    {
        PlainEvent(WARNING, "BundleCheckFailure", "", "", "")
            << "Fetch " << name << " image failed!!!";
        if (!RecoverComponent(service, strategy, name, id))
        {
            return false;
        }
    }
    else if (verifyUbbFpgaDevice(*strategy))
    {
        NvEvent(INFO, "SecureFWVerifySuccess", name, "", "")
            << "Verify " << name << " active device successfully.";
    }
    else
    {
        NvEvent(CRITICAL, "Update.1.0.1.VerificationFailed", name + ",ERoT", "",
                "")
            << "Verify " << name << " device failed!!!";
        if (!RecoverComponent(service, strategy, name, id))
        {
            return false;
        }
    }
    powerOnComponent(service, id);
    return true;
}

} // namespace orvane
