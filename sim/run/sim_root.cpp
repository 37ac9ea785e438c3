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
};

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

} // namespace

void prepareRoot(const std::string& root, const Scenario& scenario)
{
    for (const char* directory : boardDirectories)
    {
        fs::create_directories(root + directory);
    }
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
