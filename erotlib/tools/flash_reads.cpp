// Boot sides, boot partition records and the SMC's persistent record.
#include "read_commands.hpp"
#include "text_format.hpp"

#include <array>
#include <erotlib/erot.hpp>

namespace erotctl
{

namespace
{

// Names of the failover flip bits of the persist record, bit 0 upward.
constexpr std::array<const char*, 4> failoverNames = {"UBB_FPGA", "Retimer",
                                                      "RM", "IFWI"};

nlohmann::ordered_json persistFields(const erot::SmcPersistRecord& record)
{
    uint8_t flags = record.flags;
    uint16_t mask = record.failoverFlipMask;
    nlohmann::ordered_json failover = nlohmann::ordered_json::array();
    for (size_t bit = 0; bit < failoverNames.size(); ++bit)
    {
        if ((mask & (1U << bit)) != 0)
        {
            failover.push_back(failoverNames[bit]);
        }
    }
    return {
        {"raw",
         hexBytes(reinterpret_cast<const uint8_t*>(&record), sizeof(record))},
        {"flags", hexNumber(flags, 2)},
        {"secureBootFinished", (flags & erot::persistSecureBootFinished) != 0},
        {"firmwareCopyCompleted",
         (flags & erot::persistFirmwareCopyCompleted) != 0},
        {"smcFpgaRecoveryTried", record.smcFpgaAutoFlipped == 1},
        {"failoverMask", hexNumber(mask, 4)},
        {"failover", failover},
    };
}

std::string persistText(const nlohmann::ordered_json& fields)
{
    std::string failover;
    for (const auto& name : fields["failover"])
    {
        failover += " " + name.get<std::string>();
    }
    return "raw " + fields["raw"].get<std::string>() + "\nflags " +
           fields["flags"].get<std::string>() + ": secure boot finished " +
           yesNo(fields["secureBootFinished"].get<bool>()) +
           ", firmware copy completed " +
           yesNo(fields["firmwareCopyCompleted"].get<bool>()) +
           "\nSMC FPGA recovery tried " +
           yesNo(fields["smcFpgaRecoveryTried"].get<bool>()) +
           "\nfailover mask " + fields["failoverMask"].get<std::string>() +
           (failover.empty() ? " (none)" : ":" + failover) + "\n";
}

} // namespace

Result readActiveFlash(const Invocation& call)
{
    uint32_t active = 0;
    uint32_t pending = 0;
    bool updateOnReboot = false;
    uint8_t status = 0;
    int r = erot::ErotActiveFlashConfigRead(&active, &pending, &updateOnReboot,
                                            &status);
    if (failed(r, status))
    {
        return failure(call.command, r, status);
    }
    std::string text = "active side " + sideName(active) + " (" +
                       std::to_string(active) + ")\npending side " +
                       sideName(pending) + " (" + std::to_string(pending) +
                       ")\nupdate on reboot " + yesNo(updateOnReboot) + "\n";
    return succeeded(call.command, text,
                     {{"active", active},
                      {"activeSide", sideName(active)},
                      {"pending", pending},
                      {"pendingSide", sideName(pending)},
                      {"updateOnReboot", updateOnReboot}});
}

Result readBpr(const Invocation& call)
{
    uint32_t count = 0;
    erot::BootPartitionRecord* raw = nullptr;
    uint8_t status = 0;
    int r = erot::ErotBPRRead(&count, &raw, &status);
    erot::Owned<erot::BootPartitionRecord> records(raw);
    if (failed(r, status))
    {
        return failure(call.command, r, status);
    }
    std::string text = std::to_string(count) + " boot partition records\n";
    nlohmann::ordered_json entries = nlohmann::ordered_json::array();
    for (uint32_t i = 0; i < count; ++i)
    {
        uint16_t id = records.get()[i].componentId;
        uint8_t side = records.get()[i].side;
        text += hexNumber(id, 4) + " " + componentName(id) + " side " +
                sideName(side) + "\n";
        entries.push_back({{"componentId", hexNumber(id, 4)},
                           {"component", componentName(id)},
                           {"side", side},
                           {"sideName", sideName(side)}});
    }
    return succeeded(call.command, text,
                     {{"count", count}, {"entries", entries}});
}

Result readPersist(const Invocation& call)
{
    erot::SmcPersistRecord record{};
    uint16_t length = 0;
    uint8_t status = 0;
    int r = erot::ErotSMCPersistGet(reinterpret_cast<uint8_t*>(&record),
                                    sizeof(record), &length, &status);
    if (failed(r, status))
    {
        return failure(call.command, r, status);
    }
    nlohmann::ordered_json fields = persistFields(record);
    return succeeded(call.command, persistText(fields), fields);
}

Result readAutoArb(const Invocation& call)
{
    bool enabled = false;
    uint8_t status = 0;
    int r = erot::ErotGetAutoARBCommit(&enabled, &status);
    if (failed(r, status))
    {
        return failure(call.command, r, status);
    }
    return succeeded(call.command,
                     std::string("automatic anti-rollback commit ") +
                         (enabled ? "on" : "off") + "\n",
                     {{"enabled", enabled}});
}

Result readResetReason(const Invocation& call)
{
    uint32_t reason = 0;
    uint8_t status = 0;
    int r = erot::ErotGetResetReason(&reason, &status);
    if (failed(r, status))
    {
        return failure(call.command, r, status);
    }
    return succeeded(call.command,
                     "reset reason " + std::to_string(reason) + "\n",
                     {{"resetReason", reason}});
}

} // namespace erotctl
