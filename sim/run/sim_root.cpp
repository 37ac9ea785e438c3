#include "run/sim_root.hpp"

#include <filesystem>
#include <fstream>

namespace ubbsim
{

namespace fs = std::filesystem;

const char* const boardTools[] = {
    "/usr/sbin/vr-update",
    "/usr/sbin/retimer-update-secureboot.sh",
    "/usr/sbin/ubb-fpga-update.sh",
    "/usr/sbin/ifwi-update.sh",
    "/usr/sbin/rot-update.sh",
    "/usr/sbin/flash_eraseall",
    "/usr/bin/zel-rm",
    "/usr/share/images/rm_recovery.sh",
    "/usr/bin/VR_fault_dump-v0.9.1.sh",
    nullptr,
};

namespace
{

const char* const boardDirectories[] = {
    "/run/initramfs/log_nv",
    "/tmp",
    "/var/lib/images/A",
    "/var/lib/images/B",
    "/var/lib/orvane",
    "/var/log",
    "/usr/sbin",
    "/usr/bin",
    "/usr/share/images",
    "/dev",
    "/tmp/secure-boot/A",
    "/tmp/secure-boot/B",
};

// The SMC's own flash as Linux shows it: the partitions of its first SPI
// controller, mtd0 on, each named in sysfs, the update partitions also by
// name under /dev/mtd/. The second controller's flash comes and goes with
// its driver, on the board's side.
const char* const smcPartitions[] = {
    "bmc", "bmc_backup", "bmc_backup_update", "smc_ahdr_update", "apcfg_update",
};
constexpr uintmax_t partitionSize = 1 << 20;
const char* const smcMtdDir = "/sys/devices/platform/ahb/1e620000.spi/mtd/";

int exitFor(const Scenario& scenario, const std::string& tool)
{
    auto found = scenario.toolExit.find(tool);
    return found == scenario.toolExit.end() ? 0 : found->second;
}

std::string toolScript(const std::string& root, const std::string& tool,
                       int status)
{
    std::string script = "#!/bin/sh\n"
                         "echo \"" +
                         tool + " $*\" >> '" + root + "/var/log/tools.log'\n";
    if (tool.ends_with("VR_fault_dump-v0.9.1.sh"))
    {
        // A dump has something to copy: a few decoded status words.
        script += "echo 'VR fault dump: STATUS_WORD 0x0000'\n"
                  "echo 'VR fault dump: STATUS_VOUT 0x00'\n";
    }
    return script + "exit " + std::to_string(status) + "\n";
}

void makeSmcPartitions(const std::string& root)
{
    fs::create_directories(root + "/dev/mtd");
    int number = 0;
    for (const char* name : smcPartitions)
    {
        std::string mtd = "mtd" + std::to_string(number++);
        fs::create_directories(root + smcMtdDir + mtd);
        std::ofstream(root + smcMtdDir + mtd + "/name") << name << "\n";
        if (!fs::exists(root + "/dev/" + mtd))
        {
            std::ofstream(root + "/dev/" + mtd);
            fs::resize_file(root + "/dev/" + mtd, partitionSize);
        }
        std::error_code exists;
        fs::create_symlink("../" + mtd, root + "/dev/mtd/" + name, exists);
    }
}

} // namespace

void prepareRoot(const std::string& root, const Scenario& scenario)
{
    for (const char* directory : boardDirectories)
    {
        fs::create_directories(root + directory);
    }
    makeSmcPartitions(root);
    for (const char* const* tool = boardTools; *tool != nullptr; ++tool)
    {
        std::string path = root + *tool;
        std::ofstream(path)
            << toolScript(root, *tool, exitFor(scenario, *tool));
        fs::permissions(path, fs::perms::owner_all | fs::perms::group_read |
                                  fs::perms::group_exec);
    }
    for (const auto& [file, contents] : scenario.files)
    {
        fs::path path = root + file;
        fs::create_directories(path.parent_path());
        std::ofstream(path) << contents;
    }
}

} // namespace ubbsim
