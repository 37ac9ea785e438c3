#include "secure-boot/boot_success.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/fw_type.hpp"
#include "secure-boot/refresh_image_info.hpp"
#include "utils/hex_text.hpp"
#include "utils/platform/platform.hpp"

#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <optional>
#include <thread>

namespace orvane
{

namespace
{

using logging::level::ERR;
using logging::level::INFO;
using logging::level::WARNING;

constexpr const char* logPartition = "/run/initramfs/log_nv";
constexpr const char* mountTable = "/proc/mounts";
constexpr unsigned mountPollSeconds = 10;
constexpr uint32_t smcFpgaErrorCode = 0x300;

// Whether a line of the mount table names `path`; nullopt when the table
// can't be opened.
std::optional<bool> mountListed(const std::string& path)
{
    std::ifstream table(platform::path(mountTable));
    if (!table)
    {
        return std::nullopt;
    }
    for (std::string line; std::getline(table, line);)
    {
        if (line.find(path) != std::string::npos)
        {
            return true;
        }
    }
    return false;
}

void reportSmcFpgaBackup()
{
    NvEvent(INFO, "ResourceEvent.1.2.1.ResourceEROTNonFatalErrorsOEM", "NCAh",
            HexText(smcFpgaErrorCode, 8), HexText(0xFFFFFFFFU, 8))
        << "EROT Non fatal error occured";
}

} // namespace

bool checkPartitionAccess(const std::string& path)
{
    // The partition may come late in the SMC's boot: look again until it
    // does, however long that takes.
    std::optional<bool> listed;
    while ((listed = mountListed(path)) == false)
    {
        platform::sleepSeconds(mountPollSeconds);
    }
    if (!listed)
    {
        ConsoleLog(ERR) << "Failed to open /proc/mounts";
        ConsoleLog(ERR) << "Partition " << path << " is not mounted.";
        return false;
    }
    ConsoleLog(INFO) << "Partition " << path
                     << " confirmed mounted, checking access...";
    struct stat info
    {};
    if (::stat(platform::path(path).c_str(), &info) != 0)
    {
        ConsoleLog(ERR) << "Cannot access " << path;
        return false;
    }
    if (platform::shell().system("ls -la " + path + " > /dev/null 2>&1") != 0)
    {
        ConsoleLog(ERR) << "Failed to list contents of " << path;
        return false;
    }
    ConsoleLog(INFO) << "Partition " << path << " confirmed accessible.";
    return true;
}

void ReportBootMessageNow(const std::string& text)
{
    const auto start = platform::clock().steadyNow();
    if (checkPartitionAccess(logPartition))
    {
        NvEvent(INFO, "BootSuccess", "Secure", "", "") << text;
    }
    else
    {
        NvEvent(WARNING, "BootFailure", "Secure", "", "")
            << "Boot failure - NvCheckFail.";
    }
    const std::chrono::duration<double> took =
        platform::clock().steadyNow() - start;
    ConsoleLog(INFO) << "log_nv first-access took " << took.count()
                     << " seconds.";
}

void reportBootMessage(const std::string& text)
{
    std::thread(ReportBootMessageNow, text).detach();
}

void postBootReport(SecureBootService& service)
{
    bool backupListed = false;
    for (const erot::ComponentInfo& record : RefreshImageInfo(service))
    {
        if (static_cast<FwType>(record.componentId) != FwType::SMC_FPGA ||
            record.active != 0)
        {
            continue;
        }
        backupListed = true;
        if (record.hashValid == 0)
        {
            reportSmcFpgaBackup();
        }
    }
    if (!backupListed)
    {
        reportSmcFpgaBackup();
    }
}

} // namespace orvane
