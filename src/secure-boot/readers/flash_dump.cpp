#include "secure-boot/flash_dump.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/secure_boot_board.hpp"
#include "utils/platform/platform.hpp"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>

namespace orvane
{

namespace
{

using logging::level::ERR;

// dd moves whole blocks of this size; the tail goes byte by byte.
constexpr uint32_t blockSize = 512;

} // namespace

bool DumpFlash(const std::string& devicePath, const std::string& filePath,
               uint32_t size)
{
    const std::string blocks = "dd if=" + devicePath + " of=" + filePath +
                               " bs=" + std::to_string(blockSize) +
                               " count=" + std::to_string(size / blockSize);
    if (platform::shell().system(blocks) < 0)
    {
        ConsoleLog(ERR) << "Failed to dump ifwi data";
        return false;
    }
    const uint32_t remainder = size % blockSize;
    if (remainder == 0)
    {
        return true;
    }
    const std::string done = std::to_string(size - remainder);
    // The tail lands at the same offset in the file as on the device.
    const std::string tail = "dd if=" + devicePath + " of=" + filePath +
                             " bs=1 skip=" + done + " seek=" + done +
                             "  count=" + std::to_string(remainder);
    if (platform::shell().system(tail) < 0)
    {
        ConsoleLog(ERR) << "Failed to dump ifwi remaining data";
        return false;
    }
    return true;
}

std::string MtdNamed(std::string_view directory, std::string_view name)
{
    namespace fs = std::filesystem;
    static const std::regex entryName("mtd[0-9]+");
    std::error_code error;
    fs::directory_iterator entries(platform::path(directory), error);
    for (; !error && entries != fs::directory_iterator();
         entries.increment(error))
    {
        const std::string entry = entries->path().filename().string();
        std::ifstream nameFile(entries->path() / "name");
        std::string partition;
        if (std::regex_match(entry, entryName) &&
            std::getline(nameFile, partition) && partition == name)
        {
            return entry;
        }
    }
    return {};
}

std::string FindFlashDevice()
{
    const std::string entry = MtdNamed(secure_boot_board::spiMtdDir,
                                       secure_boot_board::flashPartitionName);
    return entry.empty() ? entry : "/dev/" + entry;
}

bool SpiDriverBound()
{
    const std::string link = std::string(secure_boot_board::spiDriverDir) +
                             std::string(secure_boot_board::spiDevice);
    return ::access(platform::path(link).c_str(), F_OK) == 0;
}

} // namespace orvane
