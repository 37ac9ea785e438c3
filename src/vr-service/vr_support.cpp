#include "vr-service/vr_support.hpp"

#include "logging/log_line.hpp"
#include "utils/critical_section.hpp"
#include "utils/platform/platform.hpp"
#include "vr-service/vr_board.hpp"
#include "vr-service/vr_bus.hpp"

#include <cstdio>
#include <filesystem>

namespace orvane
{

namespace
{

namespace fs = std::filesystem;
using namespace logging::level;

constexpr const char* ibcFunction = "ctrl_IBC_EN_and_Efuse_EN";
constexpr int skipLine = 886;
constexpr int runLine = 891;

bool hasIbcControl(int hwDesign)
{
    return hwDesign == 4 || hwDesign == 7 || hwDesign == 14;
}

void journalLine(int line, const char* format, bool enable, uint32_t oam)
{
    char text[128];
    std::snprintf(text, sizeof(text), format, enable ? 1 : 0, oam);
    platform::journal().print(INFO, __FILE__, line, ibcFunction, text);
}

bool isDirectory(const std::string& boardPath)
{
    std::error_code error;
    return fs::is_directory(platform::path(boardPath), error);
}

// Copies a read-only folder over; a copy that fails is told and leaves the
// folder unusable rather than ending the daemon.
bool copyFolder(const std::string& from, const std::string& to)
{
    std::error_code error;
    fs::copy(platform::path(from), platform::path(to),
             fs::copy_options::recursive | fs::copy_options::skip_existing,
             error);
    if (error)
    {
        ConsoleLog(ERR) << "Copy of " << from << " to " << to
                        << " failed: " << error.message();
        return false;
    }
    return true;
}

} // namespace

bool ctrl_IBC_EN_and_Efuse_EN(uint32_t oamIndex, bool enable, int hwDesign)
{
    if (!hasIbcControl(hwDesign))
    {
        journalLine(skipLine,
                    "Skipping ctrl_IBC_EN_and_Efuse_EN Enabled? %d oam_index "
                    ": %d",
                    enable, oamIndex);
        return true;
    }
    journalLine(runLine,
                "Running ctrl_IBC_EN_and_Efuse_EN Enabled? %d oam_index: %d",
                enable, oamIndex);
    const char* member = enable ? "EnableIBCEfuse" : "DisableIBCEfuse";
    const char* verb = enable ? "enable" : "disable";
    const BoolReply reply =
        CallBoolMethod(vr_board::rmService, vr_board::rmObject,
                       vr_board::rmInterface, member, oamIndex);
    if (reply.answer == true)
    {
        ConsoleLog(INFO) << (enable ? "Enabled" : "Disabled")
                         << " Efuse EN and IBC EN successfully";
        return true;
    }
    if (reply.answer == false)
    {
        ConsoleLog(ERR) << "Failed to " << verb
                        << " IBC and Efuse, eStatus=false";
    }
    else if (reply.errorReply)
    {
        ConsoleLog(ERR) << "Failed to " << verb
                        << " IBC and Efuse, method call error.";
    }
    else
    {
        ConsoleLog(ERR) << "failed to make a d-bus call " << member
                        << ", ERROR= " << reply.failure;
    }
    return false;
}

std::string VrBundleBase(int side)
{
    return std::string(side == 0 ? vr_board::bundleA : vr_board::bundleB);
}

bool EnsureVrConfigDir(const std::string& folder, int side)
{
    const std::string base = VrBundleBase(side);
    const std::string sub = (fs::path(base) / folder).string();
    const std::string roBase = std::string(vr_board::readOnlyRoot) + base;
    const std::string roSub = (fs::path(roBase) / folder).string();
    if (isDirectory(base))
    {
        if (isDirectory(sub))
        {
            return true;
        }
        ConsoleLog(INFO) << sub << " not found. Copying the directory from "
                         << roSub;
        if (!isDirectory(roSub))
        {
            ConsoleLog(ERR)
                << roSub << " doesn't exists. Couldn't Initiate Copy to "
                << base;
            return false;
        }
        ConsoleLog(INFO) << roSub << " exists. Initiating copy to " << sub;
        return copyFolder(roSub, sub);
    }
    ConsoleLog(INFO) << base << " not found. Copying the directory from "
                     << roBase;
    if (!isDirectory(roBase))
    {
        ConsoleLog(ERR) << fs::path(roBase)
                        << "doesn't exists. Couldn't Initiate Copy to "
                        << fs::path(base);
        return false;
    }
    ConsoleLog(INFO) << roBase << " exists. Initiating copy to " << base;
    return copyFolder(roBase, base);
}

void HaltVrBoot(sem_t* bootSemaphore)
{
    NvEvent(WARNING, "BootFailure", "RoT", "", "")
        << "System halt and enable FW recovery mode.";
    LeaveBootCriticalSection(bootSemaphore);
}

} // namespace orvane
