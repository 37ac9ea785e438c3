#include "secure-boot/smc_flash_copy.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/copy_files.hpp"
#include "secure-boot/flash_dump.hpp"
#include "secure-boot/image_paths.hpp"
#include "secure-boot/secure_boot_board.hpp"
#include "utils/platform/platform.hpp"
#include "utils/sd_bus_call.hpp"

#include <filesystem>

namespace orvane
{

namespace
{

namespace board = secure_boot_board;
using logging::level::CRITICAL;
using logging::level::ERR;
using logging::level::INFO;

// dd of the whole SMC image, 512-byte blocks.
int CopyImage(const std::string& from, const std::string& to)
{
    return platform::shell().system(
        "dd if=" + from + " of=" + to +
        " bs=512 count=" + std::to_string(board::smcImageBlocks));
}

// Erases the update partitions and programs the backup partition `entry`
// with the active dump; the updater hears of it for the whole time.
bool ProgramBackup(const std::string& active, const std::string& entry)
{
    ConsoleLog(INFO)
        << "Erase bmc_backup_update/smc_ahdr_update/apcfg_update mtd";
    setSmcUpdateOnGoing(true);
    for (std::string_view partition : board::smcUpdatePartitions)
    {
        const std::string name(partition);
        if (platform::shell().system("flash_eraseall /dev/mtd/" + name) != 0)
        {
            ConsoleLog(CRITICAL) << "Erase " << name << " failed";
            setSmcUpdateOnGoing(false);
            return false;
        }
    }
    ConsoleLog(INFO) << "Program " << active << " to "
                     << "/dev/" << entry;
    if (CopyImage(active, "/dev/" + entry) != 0)
    {
        ConsoleLog(CRITICAL) << "Program active image to inactive failed.";
        setSmcUpdateOnGoing(false);
        return false;
    }
    setSmcUpdateOnGoing(false);
    return true;
}

} // namespace

bool copySmcFlash(uint8_t side)
{
    const std::string active = SidePath(workRoot, side, "smc.bin");
    const std::string inactive = SidePath(workRoot, OtherSide(side), "smc.bin");
    const int dumped = CopyImage(std::string(board::runningSmcFlash), active);
    // Running from B, a failed dump goes unnoticed and the digests below
    // compare whatever the file holds: the board has always done so.
    if (side == sideA && dumped != 0)
    {
        ConsoleLog(CRITICAL) << "dump active smc image failed.";
        return false;
    }
    std::string entry;
    findMtdByName(std::string(board::smcBackupPartition), entry);
    if (CopyImage("/dev/" + entry, inactive) != 0)
    {
        ConsoleLog(CRITICAL) << "dump inactive smc image failed.";
        return false;
    }
    if (HashesDiffer(active, inactive) && !ProgramBackup(active, entry))
    {
        return false;
    }
    std::error_code ignored;
    std::filesystem::remove(platform::path(active), ignored);
    std::filesystem::remove(platform::path(inactive), ignored);
    return true;
}

void findMtdByName(const std::string& name, std::string& out)
{
    const std::string entry = MtdNamed(board::smcMtdDir, name);
    if (!entry.empty())
    {
        ConsoleLog(INFO) << "Get the smc mtd " << board::smcMtdDir << entry;
        out = entry;
    }
}

void setSmcUpdateOnGoing(bool value)
{
    SdBusCall call;
    int r = OpenMethodCall(call, std::string(board::updaterService).c_str(),
                           std::string(board::updaterObject).c_str(),
                           "org.freedesktop.DBus.Properties", "Set");
    if (r >= 0)
    {
        r = AppendArguments(
            call, "ssv", std::string(board::updateStatusInterface).c_str(),
            std::string(board::smcUpdateOnGoing).c_str(), "b", int{value});
    }
    if (r >= 0)
    {
        r = SendMethodCall(call);
    }
    if (r < 0)
    {
        ConsoleLog(ERR) << "Set SMCUpdateOnGoing failed: "
                        << DescribeFailure(call, r);
    }
    ConsoleLog(INFO) << "Set SMCUpdateOnGoing to "
                     << (value ? "true" : "false");
}

} // namespace orvane
