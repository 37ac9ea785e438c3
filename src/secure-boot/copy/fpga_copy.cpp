#include "secure-boot/fpga_copy.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/copy_files.hpp"
#include "secure-boot/image_paths.hpp"
#include "secure-boot/secure_boot_board.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "utils/platform/platform.hpp"

namespace orvane
{

namespace
{

namespace board = secure_boot_board;
using logging::level::CRITICAL;
using logging::level::INFO;

} // namespace

bool copyUbbFpga(uint8_t side)
{
    // Both are what the fetch read back from the flashes.
    const std::string active = SidePath(workRoot, side, "ubb-fpga.bin");
    const std::string inactive =
        SidePath(workRoot, OtherSide(side), "ubb-fpga.bin");
    const std::string command = std::string(board::ubbFpgaUpdateTool) + " " +
                                active + " " + (side == sideA ? "B" : "A");
    if (!HashesDiffer(active, inactive))
    {
        return true;
    }
    const int status = platform::shell().system(command);
    if (status != 0)
    {
        ConsoleLog(CRITICAL)
            << "ubb-fpga copy failed with return code: " << status;
        return false;
    }
    ConsoleLog(INFO) << "Program " << active << " to inactive ubb-fpga.";
    NvEvent(INFO, "Update.1.0.1.UpdateSuccessful", "UBB_FPGA", ",", active);
    ConsoleLog(INFO) << "Update inactive ubb-fpga successfully.";
    return true;
}

bool copySmcFpga(const BprTable& table, uint8_t side)
{
    // The eRoT's digests of both flashes, as it gave them at start: the
    // files alone can't tell what the inactive flash holds.
    if (table.smcFpgaActiveHash == table.smcFpgaInactiveHash)
    {
        return true;
    }
    const std::string active = SidePath(imageRoot, side, "smc_fpga_pldm.bin");
    const std::string inactive =
        SidePath(imageRoot, OtherSide(side), "smc_fpga_pldm.bin");
    LogDifferentHashes(table.smcFpgaActiveHash.data(),
                       table.smcFpgaInactiveHash.data());
    if (!CopyImageFile(active, inactive))
    {
        return false;
    }
    const int status = platform::shell().system(
        std::string(board::rotUpdateTool) + " " + active + " smc-fpga-pldm");
    if (status != 0)
    {
        ConsoleLog(CRITICAL)
            << "smc-fpga copy to device failed with return code: " << status;
        return false;
    }
    ConsoleLog(INFO) << "Program " << active << " to inactive smc-fpga.";
    return true;
}

} // namespace orvane
