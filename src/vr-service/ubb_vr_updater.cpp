#include "vr-service/ubb_vr_updater.hpp"

#include "logging/log_line.hpp"
#include "utils/dbus_handler.hpp"
#include "vr-service/vr_board.hpp"
#include "vr-service/vr_support.hpp"
#include "vr-service/vr_texts.hpp"
#include "vr-service/vr_update_steps.hpp"

#include <cstdio>
#include <filesystem>

namespace orvane
{

namespace
{

using namespace logging::level;
using namespace vr_board;

// A UBB design number as the FRU's small number counts it.
constexpr int32_t ubbDesignOffset = 20;
const std::string ubbInfo = std::string(vrInfoInterface) + "UBB";

const char* word(bool value)
{
    return value ? "true" : "false";
}

} // namespace

void UbbVrUpdater::HaltBoot()
{
    HaltVrBoot(bootSemaphore);
}

bool UbbVrUpdater::ScanUbbFru()
{
    ConsoleLog(INFO) << "*** Scan FRU UBB VR Update process ***";
    const bool scanned =
        ScanWithRounds(*this, fruKindUbb, &VrUpdater::RescanFruBus);
    CheckFruValid(*this, CRITICAL);
    if (!scanned)
    {
        ConsoleLog(ERR) << "*** Failed FRU scanning ***";
    }
    return scanned;
}

void UbbVrUpdater::RunUpdate(int side)
{
    ConsoleLog(INFO) << "*** Run UBB VR Update process ***";
    uint32_t vrStatus = 0;
    if (fruRecords.size() != 1)
    {
        ConsoleLog(ERR) << "Leak part of UBB VR FRUs. Amount less than 1.";
    }
    if (!fruRecords.empty() && !updateUbb(fruRecords.front(), side, vrStatus))
    {
        return;
    }
    if (vrStatus == 1)
    {
        SetVrStatus("OK");
    }
    else
    {
        SetVrStatus("Failed");
        ConsoleLog(ERR) << "*** Failed UBB VR Update : VRStatus - Failed ***";
    }
    ConsoleLog(INFO) << "*** End UBB VR Update process ***";
}

bool UbbVrUpdater::updateUbb(const FruRecord& record, int side,
                             uint32_t& vrStatus)
{
    const int32_t design = record.hwDesign;
    if (design == ubbDesignOffset)
    {
        VrStatusLine(ERR, "ubb", 0);
        NvEvent(CRITICAL, "ResourceEvent.1.2.1.ResourceUnrecognizedOEM",
                "OAM_" + std::to_string(record.index) + ",PartNumber," +
                    record.partNumber,
                "", "")
            << "UBB P/N(" << record.partNumber << "),Ver(" << record.version
            << ") is not recognized.";
        ConsoleLog(CRITICAL) << "UBB hardware design is unrecognized. "
                                "Halting system boot for safety.";
        SetVrStatus("Failed");
        HaltBoot();
        return false;
    }

    const std::string_view name = UbbConfigFolder(design);
    const std::string folder =
        (std::filesystem::path(VrBundleBase(side)) / name).string();
    ConsoleLog(INFO) << "VR config path: " << folder;
    const bool ready = EnsureVrConfigDir(std::string(name), side);
    if (!CheckConfigFolder(*this, folder, ready, name.empty(), design, "UBB",
                           0))
    {
        return false;
    }

    char command[512];
    std::snprintf(command, sizeof(command), "%s ubb %d %s %s %s %s", tool,
                  static_cast<int>(record.index), folder.c_str(),
                  word(enableVrUpdate), word(smcReset), "false");
    SetVrInfoProperty(ubbInfo, "VR_CONFIG_DIR", folder);
    const std::string version = ReadConfigVersion(folder);
    const ToolResult result = DecodeToolStatus(RunVrTool(command));

    ToolFailure failure{"VR_UBB", version + ",VR_UBB", "", "", design, "ubb",
                        0};
    switch (result)
    {
        case ToolResult::programmed:
            programmed = true;
            NvEvent(INFO, "FirmwareProgrammingFinished", "VR_UBB", "", "")
                << "VR_UBB programming finished.";
            NvEvent(INFO, "Update.1.0.1.UpdateSuccessful", "VR_UBB," + version,
                    "", "")
                << "*** Update UBB FRU successfully.***";
            break;
        case ToolResult::crcsMatch:
            ConsoleLog(INFO)
                << "*** UBB  All VR CRCs match, no VRs were programmed***";
            break;
        case ToolResult::skippedForReset:
            ConsoleLog(INFO) << "UBB VR Update skipped due to SMC reset";
            break;
        case ToolResult::disabled:
            ConsoleLog(INFO) << "No VR update. UBB VR update is disabled";
            break;
        case ToolResult::outOfWriteCycles:
            failure.applyArg = "OUT OF WRITE CYCLES,VR_UBB";
            failure.applyText =
                "VR_UBB *** Update UBB ,some VR's are OUT OF WRITE CYCLES***";
            failure.updateText = "*** Update UBB ,VR's OUT OF WRITE CYCLES***";
            break;
        case ToolResult::failed:
            failure.applyText = "VR_UBB *** Update UBB FRU failed.***";
            failure.updateText = "*** Update UBB FRU failed.***";
            break;
        case ToolResult::unknownError:
            failure.applyText =
                "VR_UBB *** Update UBB FRU failed with unknown error***";
            failure.updateText =
                "*** Update UBB FRU failed due to unknown error***";
            break;
        case ToolResult::killed:
            failure.applyText = "VR_UBB *** Update UBB failed abruptly.***";
            failure.updateText = "*** Update UBB FRU failed.***";
            break;
    }
    if (failure.applyText.empty())
    {
        vrStatus = 1;
        VrStatusLine(INFO, "ubb", vrStatus);
    }
    else
    {
        vrStatus = 0;
        ReportToolFailure(failure);
    }
    if (!GoesOn(result))
    {
        HaltBoot();
        return false;
    }
    SetBusProperty(vrImageInterface, "UBBVRVersion",
                   VersionText(design - ubbDesignOffset, version));
    SetVrInfoProperty(ubbInfo, "VR_CONFIG_VERSION", version);
    return true;
}

} // namespace orvane
