#include "logging/log_line.hpp"
#include "secure-boot/boot_success.hpp"
#include "secure-boot/firmware_copy.hpp"
#include "secure-boot/persist_update.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "secure-boot/secure_boot_status.hpp"
#include "utils/critical_section.hpp"
#include "utils/platform/platform.hpp"

#include <chrono>

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::ERR;
using logging::level::INFO;
using logging::level::WARNING;

// Copies and marks the copy done; false when the copy failed.
bool CopyOnce(SecureBootService& service)
{
    const auto start = platform::clock().steadyNow();
    ConsoleLog(INFO)
        << "*** Copy Active to Inactive, if both hashes are different. ***";
    if (!copyActiveToInactive(service))
    {
        NvEvent(WARNING, "AutoFWCopyFailure", "Active", ",", "Inactive");
        ConsoleLog(CRITICAL) << "Failed to copy from Active to Inactive.";
        return false;
    }
    NvEvent(INFO, "AutoFWCopySuccess", "Active", ",", "Inactive");
    ConsoleLog(INFO) << "Success to copy from Active to Inactive.";
    if (ChangePersist(service, [](erot::SmcPersistRecord& record) {
            record.flags |= persist::FIRMWARE_COPY_COMPLETED;
        }))
    {
        ConsoleLog(INFO) << "Set FIRMWARE_COPY_COMPLETED flag";
    }
    else
    {
        ConsoleLog(ERR) << "Failed to set FIRMWARE_COPY_COMPLETED flag - "
                           "Get_SMC_Persist error.";
    }
    const std::chrono::duration<double> took =
        platform::clock().steadyNow() - start;
    ConsoleLog(INFO) << "*** Finish copying ***";
    ConsoleLog(INFO) << "*** Copy took " << took.count() << " sec ***";
    return true;
}

const char* FinalStatus(uint32_t recovered)
{
    if (recovered == 0)
    {
        return "Success";
    }
    return recovered == 1 ? "SingleDeviceAutorecovery"
                          : "MultipleDeviceAutorecovery";
}

} // namespace

bool SecureBootService::parallelTask(sem_t* semaphore)
{
    // A copy finished in an earlier start of this power cycle is not
    // repeated: it would dump both SMC flashes again for nothing.
    erot::SmcPersistRecord record{};
    if (!ReadPersist(*this, record))
    {
        ConsoleLog(ERR) << " Get_SMC_Persist process error; continuing the "
                           "firmware copy.";
    }
    if ((record.flags & persist::FIRMWARE_COPY_COMPLETED) != 0)
    {
        ConsoleLog(INFO) << "Skip firmware copy - already completed";
    }
    else if (!CopyOnce(*this))
    {
        // The status stays what the boot left, and nothing is reported.
        LeaveBootCriticalSection(semaphore);
        return false;
    }
    LeaveBootCriticalSection(semaphore);
    SetSecureBootStatus(FinalStatus(recoveredCount.load()));
    postBootReport(*this);
    return true;
}

} // namespace orvane
