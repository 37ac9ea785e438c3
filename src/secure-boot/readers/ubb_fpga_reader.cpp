#include "secure-boot/ubb_fpga_reader.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/flash_dump.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/secure_boot_board.hpp"
#include "utils/gpio_lines.hpp"
#include "utils/platform/platform.hpp"

#include <string>

namespace orvane
{

namespace
{

using logging::level::ERR;
using logging::level::INFO;
namespace board = secure_boot_board;

const std::string spiSelect(board::spiSelectLine);
const std::string flashSide(board::flashSideLine);

std::string DriverCommand(std::string_view file)
{
    return "echo " + std::string(board::spiDevice) + " >" + std::string(file);
}

// The flash of `side` is on the SMC's SPI bus: bind the driver, find the
// partition and copy it.
bool SelectAndDump(ImageProcessStrategy& strategy, uint8_t side, uint32_t size)
{
    if (side == 1)
    {
        ConsoleLog(INFO) << "ReadUBBFPGA Flashing partition B";
        if (!SetGPIOOutput(flashSide, 1))
        {
            ConsoleLog(ERR) << "Fail to Set SMC_UBB_FLASH_AB_SEL to high.";
            return false;
        }
    }
    else
    {
        ConsoleLog(INFO) << "ReadUBBFPGA Flashing partition A";
        if (!SetGPIOOutput(flashSide, 0))
        {
            ConsoleLog(ERR) << "Fail to Set SMC_UBB_FLASH_AB_SEL to low.";
            return false;
        }
    }
    // The driver probes the flash only when it binds, so it must bind
    // afresh with the flash now selected.
    if (SpiDriverBound() &&
        platform::shell().system(DriverCommand(board::spiUnbindFile)) != 0)
    {
        ConsoleLog(ERR) << "SPI unbind failed";
    }
    platform::shell().system(DriverCommand(board::spiBindFile));

    const std::string& target = side == strategy.activeSide
                                    ? strategy.activeDumpPath
                                    : strategy.inactiveDumpPath;
    ConsoleLog(INFO) << "Load UBB-FPGA image from device to [" << target << "]";
    const std::string device = FindFlashDevice();
    if (device.empty())
    {
        ConsoleLog(ERR) << "Failed to find the device to load UBB-FPGA image";
        return false;
    }
    ConsoleLog(INFO) << "Load UBB-FPGA image from " << device;
    if (!DumpFlash(device, target, size))
    {
        ConsoleLog(ERR) << "UBB FPGA image dump failed";
        return false;
    }
    return true;
}

} // namespace

bool ReadUBBFPGA(ImageProcessStrategy& strategy, uint8_t side, uint32_t size)
{
    bool done = false;
    if (SetGPIOOutput(spiSelect, 1))
    {
        done = SelectAndDump(strategy, side, size);
    }
    else
    {
        ConsoleLog(ERR) << "Fail to Set SMC_UBB_FPGA_SPI_SEL to high.";
    }
    // Whatever happened, the flash goes back to the FPGA and Linux lets go
    // of the controller.
    platform::shell().system(DriverCommand(board::spiUnbindFile));
    if (!SetGPIOOutput(spiSelect, 0))
    {
        ConsoleLog(ERR) << "Fail to Set SMC_UBB_FPGA_SPI_SEL to low.";
    }
    return done;
}

} // namespace orvane
