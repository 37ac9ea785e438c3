#include "vr-service/vr_update_steps.hpp"

#include "logging/log_line.hpp"
#include "utils/dbus_handler.hpp"
#include "utils/hex_text.hpp"
#include "utils/platform/platform.hpp"
#include "vr-service/vr_board.hpp"
#include "vr-service/vr_bus.hpp"
#include "vr-service/vr_texts.hpp"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace orvane
{

namespace
{

using namespace logging::level;
constexpr int scanRounds = 5;

} // namespace

bool ScanWithRounds(VrUpdater& updater, int kind, bool (VrUpdater::*rescan)())
{
    (updater.*rescan)();
    for (int round = 0; round < scanRounds; ++round)
    {
        updater.fruPaths.clear();
        if (updater.ScanFru(kind))
        {
            ConsoleLog(INFO) << "Sucessfully scan FRU device.";
            return true;
        }
        (updater.*rescan)();
        platform::sleepSeconds(1);
    }
    updater.fruPaths.clear();
    return updater.ScanFru(kind);
}

void CheckFruValid(VrUpdater& updater, int level)
{
    const BoolReply valid =
        ReadBoolProperty(vr_board::fruService, vr_board::fruManagerObject,
                         vr_board::fruManagerInterface, "FruValid");
    if (valid.answer == false)
    {
        ConsoleLog(level) << "FRU validation failure";
        SetVrStatus("Failed");
        updater.HaltBoot();
    }
    else if (valid.errorReply)
    {
        ConsoleLog(ERR) << "method call error";
    }
    else if (!valid.answer)
    {
        ConsoleLog(ERR) << "failed to make a d-bus call, ERROR= "
                        << valid.failure;
    }
}

void SetVrStatus(const std::string& status)
{
    SetBusProperty(vr_board::vrImageInterface, "VRStatus", status);
}

void VrStatusLine(int level, const char* who, uint32_t mask)
{
    ConsoleLog(level) << who << " vr_status: 0x" << HexText(mask);
}

bool CheckConfigFolder(VrUpdater& updater, const std::string& folder,
                       bool folderReady, bool forbidden, int32_t design,
                       const char* who, uint32_t mask)
{
    const std::string file = folder + std::string(vr_board::configFile);
    std::error_code error;
    const bool found =
        folderReady && std::filesystem::exists(platform::path(file), error);
    if (folderReady && !found)
    {
        ConsoleLog(INFO)
            << "No vr_config.json file found in VR config folder \n";
    }
    const std::string lower = std::string(who) == "OAM" ? "oam" : "ubb";
    if (!found)
    {
        ConsoleLog(ERR) << "Config files not found in the following "
                           "directory:"
                        << folder;
        ConsoleLog(CRITICAL)
            << who << " Rev(" << design << ") config file directory " << folder
            << " not found.";
    }
    else if (forbidden)
    {
        ConsoleLog(CRITICAL) << who << " Rev(" << design << ") is forbidden.";
    }
    else
    {
        return true;
    }
    VrStatusLine(ERR, lower.c_str(), mask);
    SetVrStatus("Failed");
    updater.HaltBoot();
    return false;
}

std::string ReadConfigVersion(const std::string& folder)
{
    const std::string name = folder + std::string(vr_board::configFile);
    std::stringstream text;
    text << std::ifstream(platform::path(name)).rdbuf();
    std::string problem;
    auto version = ConfigVersion(text.str(), problem);
    if (!problem.empty())
    {
        // Bad input, not a reason to end the daemon: the version stays
        // unknown like that of a file without one.
        ConsoleLog(ERR) << name << " is " << problem;
    }
    if (!version)
    {
        ConsoleLog(ERR) << "ConfigVersion not found in vr_config.json\n";
        return "null";
    }
    return *version;
}

int RunVrTool(const std::string& command)
{
    auto pipe = platform::shell().popen(command);
    if (!pipe)
    {
        return -1;
    }
    char buffer[2048];
    while (pipe->read(buffer, sizeof(buffer)) > 0)
    {}
    return pipe->close();
}

void ReportToolFailure(const ToolFailure& failure)
{
    NvEvent(CRITICAL, "Update.1.0.1.ApplyFailed", failure.applyArg, "", "")
        << failure.applyText;
    SetVrStatus("Failed");
    VrStatusLine(ERR, failure.who, failure.mask);
    NvEvent(WARNING, "FirmwareUpdateFailed",
            failure.name + "," + std::to_string(failure.design), "", "")
        << failure.updateText;
}

} // namespace orvane
