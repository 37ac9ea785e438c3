#include "secure-boot/firmware_copy.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/copy_files.hpp"
#include "secure-boot/fpga_copy.hpp"
#include "secure-boot/image_paths.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "secure-boot/smc_flash_copy.hpp"

#include <string_view>

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::WARNING;

enum class Method
{
    hashAndCopy,
    ifDifferent, // a file the active side lacks goes on the inactive one
    smcFlash,
    ubbFpga,
    smcFpga,
};

struct Step
{
    FwType from; // whose side in the boot partition records counts
    std::string_view file;
    Method method;
};

// In this order; the first failure ends the copy.
constexpr Step steps[] = {
    {FwType::BUNDLE, "fwbundle.ahdr", Method::hashAndCopy},
    {FwType::SMC, "", Method::smcFlash},
    {FwType::Retimer, "retimer.bin", Method::ifDifferent},
    {FwType::Retimer_1, "retimer-1.bin", Method::ifDifferent},
    {FwType::Retimer_2, "retimer-2.bin", Method::ifDifferent},
    {FwType::Retimer, "retimer.ahdr", Method::ifDifferent},
    {FwType::Retimer_1, "retimer-1.ahdr", Method::ifDifferent},
    {FwType::Retimer_2, "retimer-2.ahdr", Method::ifDifferent},
    {FwType::RM, "rm.bin", Method::hashAndCopy},
    {FwType::RM, "rm.ahdr", Method::hashAndCopy},
    {FwType::IFWI, "ifwi.bin", Method::hashAndCopy},
    {FwType::IFWI, "ifwi.ahdr", Method::hashAndCopy},
    {FwType::UBB_FPGA, "", Method::ubbFpga},
    {FwType::UBB_FPGA, "ubb-fpga.ahdr", Method::hashAndCopy},
    {FwType::SMC_FPGA, "", Method::smcFpga},
    {FwType::SMC_FPGA, "smc_fpga_pldm.ahdr", Method::hashAndCopy},
};

// A component without a boot partition record runs from A.
uint8_t SideOf(const BprTable& table, FwType id)
{
    const auto found = table.sides.find(id);
    return found == table.sides.end() ? sideA
                                      : static_cast<uint8_t>(found->second);
}

bool RunStep(const Step& step, const BprTable& table)
{
    const uint8_t side = SideOf(table, step.from);
    const std::string active = SidePath(imageRoot, side, step.file);
    const std::string inactive =
        SidePath(imageRoot, OtherSide(side), step.file);
    switch (step.method)
    {
        case Method::hashAndCopy:
            return hashAndCopy(active, inactive);
        case Method::ifDifferent:
            return copyIfDifferent(active, inactive);
        case Method::smcFlash:
            return copySmcFlash(side);
        case Method::ubbFpga:
            return copyUbbFpga(side);
        case Method::smcFpga:
            return copySmcFpga(table, side);
    }
    return false;
}

} // namespace

bool copyActiveToInactive(SecureBootService& service)
{
    // Read without a lock: the component threads that wrote it have ended.
    const BprTable& table = *service.bprTable;
    try
    {
        for (const Step& step : steps)
        {
            if (!RunStep(step, table))
            {
                return false;
            }
        }
    }
    catch (const FirmwareCopyError& error)
    {
        NvEvent(WARNING, "AutoFWCopyFailure", error.from, ",", error.to);
        ConsoleLog(CRITICAL) << "Failed to copy image from " << error.from
                             << " to " << error.to << " according to BPR";
        return false;
    }
    return true;
}

} // namespace orvane
