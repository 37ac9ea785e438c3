#include "erotlib/erot.hpp"
#include "logging/log_line.hpp"
#include "secure-boot/erot/erot_report.hpp"
#include "secure-boot/erot_calls.hpp"

#include <iomanip>

namespace orvane
{

namespace
{

using logging::level::ERR;
using logging::level::INFO;

// Management clients drive these: either failure is reported and handed
// back, and nothing halts.
int settleArb(const char* api, int result, uint8_t status)
{
    if (result != 0)
    {
        ReportErotFailure(api, CodeWord::returnCode, result);
        return result;
    }
    if (status != 0)
    {
        ReportErotFailure(api, CodeWord::errorCode, status);
    }
    return status;
}

constexpr int resetReasonLinkFailure = 255;

} // namespace

int ErotARBCommit(BootContext&)
{
    ConsoleLog(INFO) << "*** Anti-Rollback Commit "
                     << " ***";
    uint8_t status = 0;
    int result = erot::ErotARBCommit(&status);
    return settleArb("ErotARBCommit", result, status);
}

int ErotGetAutoARBCommit(BootContext&, bool* pEnabled)
{
    ConsoleLog(INFO) << "*** Get Auto Anti-Rollback Commit "
                     << " ***";
    uint8_t status = 0;
    int result = erot::ErotGetAutoARBCommit(pEnabled, &status);
    return settleArb("ErotGetAutoARBCommit", result, status);
}

int ErotSetAutoARBCommit(BootContext&, bool enabled)
{
    ConsoleLog(INFO) << "*** Set Auto Anti-Rollback Commit "
                     << " ***";
    uint8_t status = 0;
    int result = erot::ErotSetAutoARBCommit(enabled ? 1 : 0, &status);
    return settleArb("ErotSetAutoARBCommit", result, status);
}

int ErotSetResetReason(BootContext&, uint32_t reason)
{
    uint8_t status = 0;
    int result = erot::ErotSetResetReason(reason, &status);
    if (result != 0)
    {
        ConsoleLog(ERR) << "MCTP Error " << result;
        return resetReasonLinkFailure;
    }
    if (status != 0)
    {
        ConsoleLog(ERR) << "Status Error 0x" << std::hex << std::setw(2)
                        << std::setfill('0') << unsigned{status};
        return status;
    }
    ConsoleLog(INFO) << "Setting reason " << reason << " successful.";
    return 0;
}

std::vector<sdbus::Variant> GetAutoARBCommit(BootContext& context)
{
    bool enabled = false;
    int result = ErotGetAutoARBCommit(context, &enabled);
    if (result == 0)
    {
        ConsoleLog(INFO) << "Get Auto ARB Commit Successfully - AutoARBCommit:"
                         << enabled;
    }
    return {sdbus::Variant(result), sdbus::Variant(enabled)};
}

int SetAutoARBCommit(BootContext& context, bool enabled)
{
    int result = ErotSetAutoARBCommit(context, enabled);
    if (result == 0)
    {
        ConsoleLog(INFO) << "Set Auto ARB Commit Successfully - AutoARBCommit:"
                         << enabled;
    }
    return result;
}

} // namespace orvane
