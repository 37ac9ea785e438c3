#include "secure-boot/boot_decision.hpp"

#include "logging/log_line.hpp"
#include "orvane/standby_stage2.hpp"
#include "secure-boot/boot_failure.hpp"
#include "secure-boot/boot_success.hpp"
#include "secure-boot/bpr_table.hpp"
#include "secure-boot/erot_calls.hpp"
#include "secure-boot/persist_update.hpp"
#include "secure-boot/refresh_image_info.hpp"
#include "secure-boot/revocation_report.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "secure-boot/secure_boot_status.hpp"
#include "secure-boot/trace_log.hpp"
#include "utils/platform/platform.hpp"
#include "vr-service/oam_vr_updater.hpp"

#include <algorithm>

namespace orvane
{

namespace
{

using logging::level::ERR;
using logging::level::INFO;
using logging::level::WARNING;

// New OAM regulator settings take effect only after their 3.3 V rail has
// been cycled.
void cycleOamRailAfterUpdate(SecureBootService& service)
{
    const auto& oam = service.oamVrService;
    if (!oam || !oam->enableVrUpdate || !oam->IsProgrammed())
    {
        return;
    }
    ConsoleLog(INFO) << "*** Start to power cycle OAM_3P3V ***";
    if (CycleOamRail(*service.state) == 0)
    {
        ConsoleLog(ERR) << "OAM 3P3V power cycle failed.";
        BootFailure(*service.criticalSection);
    }
    ConsoleLog(INFO) << "*** Finish OAM_3P3V power cycle ***";
    platform::sleepSeconds(1);
    oam->ReportWriteCycles();
}

// Anti-rollback is committed only with a staged update and the eRoT's
// automatic commit on; every other boot defers it.
bool chooseAutoArb(SecureBootService& service)
{
    bool enabled = false;
    if (!service.updateOnReboot)
    {
        return false;
    }
    if (ErotGetAutoARBCommit(*service.criticalSection, &enabled) != 0)
    {
        ConsoleLog(ERR)
            << "Get Auto ARB Commit failed! Disable Auto ARB Commit.";
        return false;
    }
    return enabled;
}

void publishRecoveries(SecureBootService& service)
{
    const auto count = static_cast<uint32_t>(std::count_if(
        service.components.begin(), service.components.end(),
        [](const ComponentEntry& entry) { return entry.recovered; }));
    service.recoveredCount = count;
    if (count == 1)
    {
        SetSecureBootStatus("SingleDeviceAutorecovery");
    }
    else if (count > 1)
    {
        SetSecureBootStatus("MultipleDeviceAutorecovery");
    }
}

void signalSuccess(SecureBootService& service)
{
    BootContext& context = *service.criticalSection;
    const bool autoArb = chooseAutoArb(service);
    ConsoleLog(INFO) << "Set SignalBootStatus to "
                     << (autoArb ? "SIGNAL_BOOT_SUCCESS_SUCCESS_ARB"
                                 : "SIGNAL_BOOT_SUCCESS_SUCCESS_DEFER_ARB");
    if (ErotSignalBootSuccess(context, autoArb ? 0 : 1) != 0)
    {
        NvEvent(WARNING, "BootFailure", "Secure", "", "")
            << "Secure boot failure.";
        SetSecureBootStatus("Fail");
        return;
    }
    reportBootMessage("Secure boot success.");
    if (autoArb)
    {
        // The commit is for this staged update only.
        if (ErotSetAutoARBCommit(context, false) == 0)
        {
            ConsoleLog(INFO) << "Auto_ARB_Commit is set to disabled";
        }
        else
        {
            ConsoleLog(ERR) << "Failed to set Auto_ARB_Commit to disabled";
        }
        ReportRevocation(context);
    }
    publishRecoveries(service);
}

} // namespace

void finishSecureBoot(SecureBootService& service)
{
    cycleOamRailAfterUpdate(service);
    PrintBprTable(*service.bprTable);
    if (service.bootFailureState == 5)
    {
        BootFailure(*service.criticalSection);
    }
    signalSuccess(service);
    if (service.updateOnReboot)
    {
        ConsoleLog(INFO) << "Clear updateOnReboot";
        ErotSelectActiveFlash(*service.criticalSection, service.activeSide, 0);
    }
    UpdatePersist(service, "", [](erot::SmcPersistRecord& record) {
        record.flags |= persist::SECURE_BOOT_FINISHED;
    });
    RefreshImageInfo(service);
    ConsoleLog(INFO) << "Print DebugTraceLog again.";
    PrintDebugTraceLog(*service.criticalSection);
    ConsoleLog(INFO) << "=== end of Secure Boot ===";
}

} // namespace orvane
