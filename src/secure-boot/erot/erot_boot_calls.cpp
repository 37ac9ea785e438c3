#include "erotlib/erot.hpp"
#include "logging/log_line.hpp"
#include "secure-boot/boot_failure.hpp"
#include "secure-boot/erot/erot_report.hpp"
#include "secure-boot/erot_calls.hpp"
#include "utils/platform/platform.hpp"

#include <cerrno>
#include <cstdio>
#include <iomanip>
#include <optional>

namespace orvane
{

namespace
{

using logging::level::INFO;
using logging::level::WARNING;

constexpr uint8_t componentInfoVersion = 4;
constexpr int componentInfoReads = 5;

// How one boot call reports: the word of a link failure, which halts, and
// that of a refusal, if a refusal is reported at all.
struct Grades
{
    CodeWord link;
    std::optional<CodeWord> refusal;
};

int settle(BootContext& context, const char* api, int result, uint8_t status,
           Grades grades)
{
    if (result != 0)
    {
        ReportErotFailure(api, grades.link, result);
        BootFailure(context);
    }
    if (status != 0 && grades.refusal)
    {
        ReportErotFailure(api, *grades.refusal, status);
    }
    return status;
}

constexpr Grades errorCodeOnly{CodeWord::errorCode, std::nullopt};

} // namespace

int ErotActiveFlashConfigRead(BootContext& context, uint32_t* pActive,
                              uint32_t* pPending, bool* pUpdateOnReboot)
{
    ConsoleLog(INFO) << "Sending Active Flash Config Read Command";
    uint8_t status = 0;
    int result = erot::ErotActiveFlashConfigRead(pActive, pPending,
                                                 pUpdateOnReboot, &status);
    ConsoleLog(INFO) << "Response Received. Status 0x" << std::hex
                     << std::setw(2) << std::setfill('0') << unsigned{status}
                     << std::dec << ", Return Code: " << result;
    return settle(context, "ErotActiveFlashConfigRead", result, status,
                  {CodeWord::returnCode, CodeWord::returnCode});
}

int ErotImageVerify(BootContext& context, uint16_t componentId,
                    const uint8_t* hash, const uint8_t* ahdr)
{
    ConsoleLog(INFO) << "*** Start Image Verify Command ***";
    std::printf("Call ErotImageVerify component ID 0x%04x\n", componentId);
    uint8_t status = 0;
    int result =
        erot::ErotImageVerify(0, componentId, hash, ahdrSize, ahdr, &status);
    std::printf("Return ErotImageVerify component ID 0x%04x, status 0x%02x\n",
                componentId, status);
    std::fflush(stdout);
    return settle(context, "ErotImageVerify", result, status,
                  {CodeWord::errorCode, CodeWord::errorCode});
}

int ErotSignalBootSuccess(BootContext& context, uint8_t stage)
{
    ConsoleLog(INFO) << "*** SMC Signal Boot Success Command ***";
    uint8_t status = 0;
    int result = erot::ErotSignalBootSuccess(stage, &status);
    std::printf("SMC Signal Boot Success return %d, status 0x%02x\n", result,
                status);
    std::fflush(stdout);
    return settle(context, "ErotSignalBootSuccess", result, status,
                  {CodeWord::errorCode, CodeWord::errorCode});
}

int ErotBPRRead(BootContext& context, uint32_t* pCount,
                erot::BootPartitionRecord** pEntries)
{
    // Two pieces: the double blank before the closing stars is the line's own.
    ConsoleLog(INFO) << "*** Read Boot Partition Record "
                     << " ***";
    uint8_t status = 0;
    int result = erot::ErotBPRRead(pCount, pEntries, &status);
    return settle(context, "ErotBPRRead", result, status, errorCodeOnly);
}

int ErotSelectActiveFlash(BootContext& context, uint8_t side, uint8_t persist)
{
    ConsoleLog(INFO) << "*** Select Active Flash Command, Component: "
                     << unsigned{side} << " ***";
    uint8_t status = 0;
    int result = erot::ErotSelectActiveFlash(side, persist, &status);
    return settle(context, "ErotSelectActiveFlash", result, status,
                  errorCodeOnly);
}

int ErotGetComponentInfo(BootContext& context, uint32_t* pCount,
                         erot::ComponentInfo** pEntries)
{
    uint8_t status = 0;
    int result = 0;
    for (int retry = 0; retry < componentInfoReads;)
    {
        result = erot::ErotGetComponentInfo(componentInfoVersion, pCount,
                                            pEntries, &status);
        if (result != -EPROTO)
        {
            break;
        }
        // The fifth protocol error logs and pauses like the four before it;
        // only then does the boot halt.
        ConsoleLog(WARNING)
            << "ErotGetComponentInfo failed with -EPROTO. ErrorCode: "
            << unsigned{status} << "Retry: " << retry;
        ++retry;
        platform::sleepSeconds(1);
    }
    return settle(context, "ErotGetComponentInfo", result, status,
                  {CodeWord::returnCode, CodeWord::errorCode});
}

bool ErotGetBKCManifest(BootContext&,
                        std::vector<erot::BkcManifestEntry>& entries)
{
    uint32_t count = 0;
    erot::BkcManifestEntry* raw = nullptr;
    uint8_t status = 0;
    int result = erot::ErotGetBKCManifest(&count, &raw, &status);
    erot::Owned<erot::BkcManifestEntry> owned(raw);
    const char* api = "ErotGetBKCManifest";
    if (result != 0)
    {
        ReportErotFailure(
            api, "Fail to run ErotGetBKCManifest. MCTP Error Code: ", result);
        return false;
    }
    if (status != 0)
    {
        ReportErotFailure(api, CodeWord::errorCode, status);
        return false;
    }
    entries.assign(owned.get(), owned.get() + count);
    return true;
}

int ErotSystemReset(BootContext& context, uint8_t resetType)
{
    platform::sleepSeconds(10);
    uint8_t status = 0;
    int result = erot::ErotSystemReset(resetType, &status);
    return settle(context, "ErotSystemReset", result, status, errorCodeOnly);
}

int ErotSMCPersistGet(BootContext& context, uint8_t* buffer, size_t length,
                      uint16_t* pOutLength)
{
    ConsoleLog(INFO) << "*** Get SMC Persist "
                     << " ***";
    uint8_t status = 0;
    int result = erot::ErotSMCPersistGet(buffer, length, pOutLength, &status);
    return settle(context, "ErotSMCPersistGet", result, status, errorCodeOnly);
}

int ErotSMCPersistSet(BootContext& context, const uint8_t* buffer,
                      size_t length)
{
    ConsoleLog(INFO) << "*** Set SMC Persist "
                     << " ***";
    uint8_t status = 0;
    int result = erot::ErotSMCPersistSet(buffer, length, &status);
    return settle(context, "ErotSMCPersistSet", result, status, errorCodeOnly);
}

} // namespace orvane
