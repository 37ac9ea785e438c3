#include "secure-boot/revocation_report.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/boot_failure.hpp"
#include "secure-boot/erot_calls.hpp"
#include "secure-boot/fw_type.hpp"
#include "utils/hex_text.hpp"

#include <cstdlib>

namespace orvane
{

namespace
{

using logging::level::INFO;

constexpr uint8_t revocationFailed = 1;
constexpr uint8_t revocationDone = 2;

} // namespace

std::vector<erot::ComponentInfo> ReadComponentInfoOrHalt(BootContext& context)
{
    uint32_t count = 0;
    erot::ComponentInfo* entries = nullptr;
    int status = ErotGetComponentInfo(context, &count, &entries);
    std::vector<erot::ComponentInfo> records;
    if (status == 0 && entries != nullptr)
    {
        records.assign(entries, entries + count);
    }
    std::free(entries);
    if (status != 0)
    {
        ConsoleLog(INFO) << "Get_Component_Info fail.";
        BootFailure(context);
    }
    return records;
}

std::string_view RevocationState(uint8_t status)
{
    switch (status)
    {
        case 0:
            return "not requested";
        case revocationFailed:
            return "requested but not completed";
        case revocationDone:
            return "completed";
        default:
            return {};
    }
}

void RaiseRevocationEvent(std::string_view event, const std::string& name,
                          std::string_view what, uint32_t value,
                          std::string_view state, const std::string& text)
{
    std::string argument =
        name + "," + std::string(what) + ",0x" + HexText(value, 8);
    if (!state.empty())
    {
        argument += "," + std::string(state);
    }
    NvEvent(INFO, "ResourceEvent.1.2.1." + std::string(event), argument, "", "")
        << name << text;
}

void ReportRevocation(BootContext& context)
{
    for (const erot::ComponentInfo& record : ReadComponentInfoOrHalt(context))
    {
        const FwNames* names = FindFwNames(record.componentId);
        if (record.active == 0 || names == nullptr)
        {
            continue;
        }
        const std::string name(names->text);
        if (record.svnRevocationStatus == revocationFailed)
        {
            RaiseRevocationEvent("RevocationFailedOEM", name, "SVN", record.svn,
                                 "", " SVN Revocation failed");
        }
        else if (record.svnRevocationStatus == revocationDone)
        {
            RaiseRevocationEvent("RevocationSuccessOEM", name, "SVN",
                                 record.svn, "", " SVN Revocation success");
        }
    }
}

} // namespace orvane
