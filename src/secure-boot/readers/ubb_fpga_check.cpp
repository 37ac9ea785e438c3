#include "secure-boot/ubb_fpga_check.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/hash_file.hpp"
#include "secure-boot/image_paths.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/ubb_fpga_reader.hpp"

#include <iostream>

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::ERR;
using logging::level::INFO;

} // namespace

bool verifyUbbFpgaDevice(ImageProcessStrategy& strategy)
{
    const uint32_t size = strategy.activeAhdr.verifiablePayloadSize;
    std::cout << "ReadUBBFPGAAHDR, vs = " << size << " \n"
              << "UBB-FPGA active verifiable payload size " << size
              << std::endl;
    if (!ReadUBBFPGA(strategy, strategy.activeSide, size))
    {
        ConsoleLog(ERR) << "Failed to read active UBB-FPGA image";
        return false;
    }
    // The other flash is read as well, so that a recovery finds it ready.
    if (!ReadUBBFPGA(strategy, OtherSide(strategy.activeSide), size))
    {
        ConsoleLog(ERR) << "Failed to read inactive UBB-FPGA image";
        return false;
    }
    if (!HashFile(strategy.activeDumpPath, size, strategy.activeHash))
    {
        ConsoleLog(ERR) << "Failed to calculate active UBB-FPGA image hash";
        return false;
    }
    NvEvent(INFO, "Update.1.0.1.VerifyingAtComponent", "UBB_FPGA,ERoT", "", "")
        << "ERoT Starts verifying the UBB-FPGA image.";
    if (!strategy.Verify())
    {
        NvEvent(CRITICAL, "Update.1.0.1.VerificationFailed", "UBB_FPGA,ERoT",
                "", "")
            << "Verify UBB-FPGA image failed!!!";
        return false;
    }
    return true;
}

} // namespace orvane
