#include "run/sim_root.hpp"

#include "run/smc_flash.hpp"

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
    "/proc",
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
// The running and the backup flash hold a whole SMC image, and so does the
// backup's update partition; the header and configuration ones are small.
uintmax_t partitionSize(const std::string& name)
{
    return name.ends_with("bmc") || name.find("bmc_backup") == 0 ? smcImageBytes
                                                                 : 1 << 20;
}
const char* const smcMtdDir = "/sys/devices/platform/ahb/1e620000.spi/mtd/";

constexpr const char* vrTool = "/usr/sbin/vr-update";

// The regulator configurations of the board's designs, one folder each, on
// both sides of the image and in its read-only copy.
const char* const bundleTrees[] = {
    "/var/lib/images/A/vr-bundle",
    "/var/lib/images/B/vr-bundle",
    "/run/initramfs/ro/var/lib/images/A/vr-bundle",
    "/run/initramfs/ro/var/lib/images/B/vr-bundle",
};
const char* const bundleFolders[] = {
    "OAMVRx1", "OAMVRx2", "OAMVRx3", "OAMVRx4",  "OAMVRx5", "OAMVRx6",
    "OAMVRx7", "OAMVRx8", "OAMVRxE", "OAMVRx10", "UBBVRx1", "UBBVRx2",
    "UBBVRx3", "UBBVRx4", "UBBVRx5", "UBBVRx6",
};
constexpr const char* bundleConfig =
    "{\"ConfigVersion\": \"1.0\", \"VRConfigs\": []}\n";

int exitFor(const Scenario& scenario, const std::string& tool)
{
    auto found = scenario.toolExit.find(tool);
    return found == scenario.toolExit.end() ? 0 : found->second;
}

// How the tool ends, as shell code. A killed tool takes the shell that
// started it along: the board's shell replaces itself with the command, so
// the daemon sees the signal, not a shell's exit code.
std::string ending(std::optional<int> status)
{
    if (!status)
    {
        return "default";
    }
    return *status == toolKilled
               ? "{ [ \"$(cat /proc/$PPID/comm)\" = sh ] && kill -KILL "
                 "$PPID; kill -KILL $$; }"
               : "exit " + std::to_string(*status);
}

// The update tool ends as the scenario says for the board it is given
// ("ubb 14" or "oam N"); asked for the write-cycle report (the sixth word
// "true") it answers 0.
std::string vrToolCases(const Scenario& scenario)
{
    const auto named = scenario.toolExit.find(vrTool);
    std::string otherwise = named == scenario.toolExit.end()
                                ? "[ \"$smcReset\" = true ] && exit 14\nexit 1"
                                : "exit " + std::to_string(named->second);
    std::string cases = "smcReset=$5\ndefault() {\n" + otherwise +
                        "\n}\n"
                        "[ \"$6\" = true ] && exit 0\n"
                        "case \"$1 $2\" in\n"
                        "  \"ubb 14\") " +
                        ending(scenario.vrUpdate.ubb) + " ;;\n";
    for (size_t n = 0; n < scenario.vrUpdate.oams.size(); ++n)
    {
        cases += "  \"oam " + std::to_string(n) + "\") " +
                 ending(scenario.vrUpdate.oams[n]) + " ;;\n";
    }
    return cases + "esac\ndefault\n";
}

void makeBundles(const std::string& root, const Scenario& scenario)
{
    for (const char* tree : bundleTrees)
    {
        for (const char* folder : bundleFolders)
        {
            fs::path path = fs::path(root + tree) / folder;
            fs::create_directories(path);
            std::ofstream(path / "vr_config.json") << bundleConfig;
        }
    }
    for (const std::string& folder : scenario.vrUpdate.missing)
    {
        fs::remove_all(root + folder);
    }
}

std::string toolScript(const std::string& root, const std::string& tool,
                       const Scenario& scenario)
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
    if (tool == vrTool)
    {
        return script + vrToolCases(scenario);
    }
    if (tool.ends_with("/flash_eraseall"))
    {
        script += flashEraseScript(scenario);
    }
    return script + "exit " + std::to_string(exitFor(scenario, tool)) + "\n";
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
            fs::resize_file(root + "/dev/" + mtd, partitionSize(name));
        }
        std::error_code exists;
        fs::create_symlink("../" + mtd, root + "/dev/mtd/" + name, exists);
    }
}

const char* const baseMounts = "rootfs / rootfs rw 0 0\n"
                               "proc /proc proc rw,nosuid,nodev,noexec 0 0\n"
                               "sysfs /sys sysfs rw,nosuid,nodev,noexec 0 0\n"
                               "tmpfs /run tmpfs rw,nosuid,nodev,mode=755 0 0\n"
                               "tmpfs /tmp tmpfs rw,nosuid,nodev 0 0\n";
const char* const logNvMount =
    "/dev/mtdblock6 /run/initramfs/log_nv jffs2 rw,relatime 0 0\n";

} // namespace

void writeMounts(const std::string& root, bool logNvMounted)
{
    const std::string table = root + "/proc/mounts";
    std::ofstream(table + ".new")
        << baseMounts << (logNvMounted ? logNvMount : "");
    fs::rename(table + ".new", table);
}

void prepareRoot(const std::string& root, const Scenario& scenario)
{
    for (const char* directory : boardDirectories)
    {
        fs::create_directories(root + directory);
    }
    makeSmcPartitions(root);
    writeMounts(root, scenario.logNvMount <= 0);
    for (const char* const* tool = boardTools; *tool != nullptr; ++tool)
    {
        std::string path = root + *tool;
        std::ofstream(path) << toolScript(root, *tool, scenario);
        fs::permissions(path, fs::perms::owner_all | fs::perms::group_read |
                                  fs::perms::group_exec);
    }
    // The bundles are the image's: a daemon restarted in the same run finds
    // them as the last one left them.
    if (!fs::exists(root + "/run/initramfs/ro"))
    {
        makeBundles(root, scenario);
    }
    for (const auto& [file, contents] : scenario.files)
    {
        fs::path path = root + file;
        fs::create_directories(path.parent_path());
        std::ofstream(path) << contents;
    }
}

} // namespace ubbsim
