#include "secure-boot/inactive_side.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/image_paths.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/ubb_fpga_reader.hpp"
#include "utils/platform/platform.hpp"

#include <filesystem>
#include <fstream>

namespace orvane
{

namespace
{

using logging::level::ERR;
using logging::level::INFO;

// True when the board path exists; else the line that sends the operator
// to a manual recovery.
bool Present(const std::string& path)
{
    if (platform::exists(path))
    {
        return true;
    }
    ConsoleLog(ERR) << "autoRecoveryMode failed - need auto recovery " << path
                    << " by redfish.";
    return false;
}

bool ReadInactiveAhdr(ImageProcessStrategy& strategy)
{
    std::ifstream file(platform::path(strategy.inactiveAhdrPath),
                       std::ios::binary);
    if (!file)
    {
        ConsoleLog(ERR) << "Failed to open inactive_AHDR";
        return false;
    }
    file.seekg(0, std::ios::end);
    const auto size = static_cast<long long>(file.tellg());
    ConsoleLog(INFO) << "inactive_AHDR size: [" << size << "]";
    if (size != static_cast<long long>(ahdrSize))
    {
        ConsoleLog(ERR) << "Unexpected inactive_AHDR size [" << size
                        << " != " << ahdrSize << "]";
        return false;
    }
    strategy.inactiveAhdr = AhdrHeader{};
    file.seekg(0);
    file.read(reinterpret_cast<char*>(&strategy.inactiveAhdr), ahdrSize);
    const auto count = file.gcount();
    ConsoleLog(INFO) << "Read " << count << " bytes from AHDR";
    if (count != static_cast<std::streamsize>(ahdrSize))
    {
        ConsoleLog(ERR) << "Failed to read compete AHDR";
        return false;
    }
    return true;
}

} // namespace

bool initInactiveSide(ImageProcessStrategy& strategy, uint32_t id)
{
    ConsoleLog(INFO) << "Process inactive_AHDR: [" << strategy.inactiveAhdrPath
                     << "]";
    if (!Present(strategy.inactiveAhdrPath) || !ReadInactiveAhdr(strategy))
    {
        return false;
    }
    if (id != static_cast<uint32_t>(FwType::UBB_FPGA))
    {
        return Present(strategy.inactiveImagePath);
    }
    // The UBB FPGA's inactive image is what its other flash holds.
    ConsoleLog(INFO) << "Read UBB-FPGA image from inactive flash";
    if (!ReadUBBFPGA(strategy, OtherSide(strategy.activeSide),
                     strategy.inactiveAhdr.verifiablePayloadSize))
    {
        strategy.inactiveHash.fill(0);
        ConsoleLog(ERR) << "Failed to read inactive UBB-FPGA image";
        return false;
    }
    ConsoleLog(INFO) << "Calculate hash of inactive UBB-FPGA image";
    return Present(strategy.inactiveDumpPath);
}

} // namespace orvane
