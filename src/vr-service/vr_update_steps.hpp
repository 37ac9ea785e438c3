#pragma once

#include "vr-service/vr_updater.hpp"

#include <cstdint>
#include <string>

namespace orvane
{

// The steps that the OAM and the UBB update share.

// The FRU scan with the rescans between its rounds; the scan's result.
bool ScanWithRounds(VrUpdater& updater, int kind, bool (VrUpdater::*rescan)());

// Halts the boot when the FRU service says its data isn't valid; the
// failure line at `level`.
void CheckFruValid(VrUpdater& updater, int level);

void SetVrStatus(const std::string& status);

// "oam vr_status: 0x" or "ubb vr_status: 0x" and the mask.
void VrStatusLine(int level, const char* who, uint32_t mask);

// Whether the design's folder holds a configuration that may be used; when
// not, the lines of `who` ("OAM" or "UBB"), the status "Failed" and the
// halt. `mask` is the vr_status to report.
bool CheckConfigFolder(VrUpdater& updater, const std::string& folder,
                       bool folderReady, bool forbidden, int32_t design,
                       const char* who, uint32_t mask);

// The ConfigVersion of the folder's vr_config.json; "null" when it has
// none.
std::string ReadConfigVersion(const std::string& folder);

// Runs the update tool and gives its wait status; -1 when it can't start.
int RunVrTool(const std::string& command);

// The reports of a tool run that failed (exit codes 254, 255, others or a
// signal), from the first event to the second.
struct ToolFailure
{
    std::string name;       // "VR_3" or "VR_UBB"
    std::string applyArg;   // arg1 of ApplyFailed
    std::string applyText;  // its text
    std::string updateText; // the text of FirmwareUpdateFailed
    int32_t design;
    const char* who; // "oam" or "ubb" for the vr_status line
    uint32_t mask;
};
void ReportToolFailure(const ToolFailure& failure);

} // namespace orvane
