#include "vr-service/oam_vr_updater.hpp"

#include "logging/log_line.hpp"
#include "utils/dbus_handler.hpp"
#include "utils/platform/platform.hpp"
#include "vr-service/vr_board.hpp"
#include "vr-service/vr_support.hpp"
#include "vr-service/vr_texts.hpp"
#include "vr-service/vr_update_steps.hpp"

#include <cstdio>
#include <filesystem>
#include <stdexcept>

namespace orvane
{

namespace
{

using namespace logging::level;
using namespace vr_board;

const char* word(bool value)
{
    return value ? "true" : "false";
}

// The text of an event with the OAM's number in it.
std::string numbered(const char* format, int number)
{
    char text[256];
    std::snprintf(text, sizeof(text), format, number);
    return text;
}

// The UBB's design as the FRU scan published it; 0 when unknown.
int32_t ubbDesign()
{
    const std::string text = GetBusProperty(
        vrInfoObject, std::string(vrInfoInterface) + "UBB", "HW_DESIGN");
    if (text.empty())
    {
        return 0;
    }
    try
    {
        return std::stoi(text);
    }
    catch (const std::logic_error& error)
    {
        // Anyone with the right may write the property: a text that isn't
        // a number must not end the daemon.
        ConsoleLog(ERR) << "UBB HW_DESIGN " << text
                        << " is not a design number: " << error.what();
        return 0;
    }
}

} // namespace

void OamVrUpdater::HaltBoot()
{
    HaltVrBoot(bootSemaphore);
}

void OamVrUpdater::RunUpdate(int side)
{
    const uint8_t present = ReadOamPresentMask();
    ConsoleLog(INFO) << "*** Run OAM VR Update process ***";

    const bool scanned =
        ScanWithRounds(*this, fruKindOam, &VrUpdater::RescanFruAll);
    CheckFruValid(*this, ERR);
    if (!scanned)
    {
        ConsoleLog(ERR) << "*** Failed OAM VR Update process ***";
        ConsoleLog(INFO) << "*** End OAM VR Update process ***";
        return;
    }
    if (present == 0xFF && fruRecords.size() != oamCount)
    {
        ConsoleLog(ERR) << "Leak part of OAM VR FRUs. Amount less than 8.";
    }

    const int32_t ubb = ubbDesign();
    bool forbidden = false;
    for (const FruRecord& record : fruRecords)
    {
        const int number = record.index;
        if (IsForbiddenPair(ubb, record.hwDesign))
        {
            forbidden = true;
            NvEvent(CRITICAL, "ResourceEvent.1.2.1.ResourceSelfTestFailed",
                    "VR mismatch between the UBB and OAM_" +
                        std::to_string(number) + " secure boot failure",
                    "", "");
            ConsoleLog(ERR) << "UBB VRrev " << ubb << " incompatible with OAM"
                            << number << " VRrev " << record.hwDesign;
        }
        else
        {
            ConsoleLog(INFO) << "UBB VRrev " << ubb << " compatible with OAM"
                             << number << " VRrev " << record.hwDesign;
        }
    }
    if (forbidden)
    {
        SetVrStatus("Failed");
        HaltBoot();
    }

    uint32_t vrStatus = 0;
    for (const FruRecord& record : fruRecords)
    {
        if (!updateOam(record, side, vrStatus))
        {
            return;
        }
    }

    const uint8_t now = ReadOamPresentMask();
    if (present == 0)
    {
        SetVrStatus("Failed");
        ConsoleLog(ERR)
            << "*** Failed to detect OAM presence : VRStatus - Failed ***";
    }
    else if (now == vrStatus)
    {
        SetVrStatus("OK");
    }
    else
    {
        SetVrStatus("Failed");
        ConsoleLog(ERR) << "*** Failed OAM VR Update : VRStatus - Failed ***";
    }
    ConsoleLog(INFO) << "*** End OAM VR Update process ***";
}

bool OamVrUpdater::updateOam(const FruRecord& record, int side,
                             uint32_t& vrStatus)
{
    const int n = record.index;
    const uint32_t bit = 1U << n;
    const std::string vr = "VR_" + std::to_string(n);
    const std::string info =
        std::string(vrInfoInterface) + "OAM_" + std::to_string(n);
    if (record.hwDesign == 0)
    {
        VrStatusLine(ERR, "oam", 0);
        NvEvent(CRITICAL, "ResourceEvent.1.2.1.ResourceUnrecognizedOEM",
                "OAM_" + std::to_string(n) + ",PartNumber," + record.partNumber,
                "", "")
            << "OAM P/N(" << record.partNumber << "),Ver(" << record.version
            << ") is not recognized.";
        ConsoleLog(CRITICAL) << "OAM hardware design is unrecognized. "
                                "Halting system boot for safety.";
        SetVrStatus("Failed");
        HaltBoot();
        return false;
    }

    const std::string_view name = OamConfigFolder(record.hwDesign);
    const std::string folder =
        (std::filesystem::path(VrBundleBase(side)) / name).string();
    const bool ready = EnsureVrConfigDir(std::string(name), side);
    configDirs.push_back(folder);
    if (!CheckConfigFolder(*this, folder, ready, name.empty(), record.hwDesign,
                           "OAM", vrStatus & ~bit))
    {
        return false;
    }

    char command[512];
    std::snprintf(command, sizeof(command), "%s oam %d %s %s %s %s", tool, n,
                  folder.c_str(), word(enableVrUpdate), word(smcReset),
                  "false");
    SetVrInfoProperty(info, "VR_CONFIG_DIR", folder);
    const std::string version = ReadConfigVersion(folder);
    if (!smcReset)
    {
        ctrl_IBC_EN_and_Efuse_EN(n, true, record.hwDesign);
    }
    const int status = RunVrTool(command);
    if (!smcReset)
    {
        ctrl_IBC_EN_and_Efuse_EN(n, false, record.hwDesign);
    }

    const ToolResult result = DecodeToolStatus(status);
    ToolFailure failure{vr,    version + "," + vr, "", "", record.hwDesign,
                        "oam", vrStatus & ~bit};
    switch (result)
    {
        case ToolResult::programmed:
            programmed = true;
            NvEvent(INFO, "FirmwareProgrammingFinished", vr, "", "")
                << vr << " programming finished.";
            NvEvent(INFO, "Update.1.0.1.UpdateSuccessful", vr + "," + version,
                    "", "")
                << numbered("*** Update OAM %d FRU successfully.***", n);
            break;
        case ToolResult::crcsMatch:
            ConsoleLog(INFO) << "*** OAM " << n
                             << " All VR CRCs match, no VRs were "
                                "programmed***";
            break;
        case ToolResult::skippedForReset:
            ConsoleLog(INFO) << "VR Update skipped due to SMC reset";
            break;
        case ToolResult::disabled:
            ConsoleLog(INFO) << "No VR update. VR update is disabled";
            break;
        case ToolResult::outOfWriteCycles:
            failure.applyArg = "OUT OF WRITE CYCLES," + vr;
            failure.applyText = "*** Update OAM " + std::to_string(n) +
                                " VR OUT OF WRITE CYCLES***";
            failure.updateText =
                numbered("*** Update OAM %d OUT OF WRITE CYCLES***", n);
            break;
        case ToolResult::failed:
            failure.applyText =
                "*** Update OAM " + std::to_string(n) + " FRU failed.***";
            failure.updateText =
                numbered("*** Update OAM %d FRU failed.***", n);
            break;
        case ToolResult::unknownError:
            failure.applyText = "*** Update OAM " + std::to_string(n) +
                                " failed due to  unknown error***";
            failure.updateText = numbered(
                "*** Update OAM %d FRU failed due to  unknown error***", n);
            break;
        case ToolResult::killed:
            failure.applyText =
                "*** Update OAM " + std::to_string(n) + " exited abnormally***";
            failure.updateText =
                numbered("*** Update OAM %d FRU failed abruptly***", n);
            break;
    }
    if (failure.applyText.empty())
    {
        vrStatus |= bit;
        VrStatusLine(INFO, "oam", vrStatus);
    }
    else
    {
        vrStatus &= ~bit;
        ReportToolFailure(failure);
    }
    if (!GoesOn(result))
    {
        HaltBoot();
        return false;
    }
    SetBusProperty(vrImageInterface, "OAM" + std::to_string(n) + "VRVersion",
                   VersionText(record.hwDesign, version));
    SetVrInfoProperty(info, "VR_CONFIG_VERSION", version);
    return true;
}

void OamVrUpdater::ReportWriteCycles()
{
    // Only OAMs that the update gave a folder can be asked.
    for (size_t n = 0; n < oamCount && n < configDirs.size(); ++n)
    {
        const std::string command = std::string(tool) + " oam " +
                                    std::to_string(n) + " " + configDirs[n] +
                                    " false " + " false " + " true";
        const int result = platform::shell().system(command);
        if (result != 0)
        {
            ConsoleLog(ERR) << "Failed to read remaining write cylces at OAM_"
                            << n << ". Error code: " << result;
        }
    }
}

} // namespace orvane
