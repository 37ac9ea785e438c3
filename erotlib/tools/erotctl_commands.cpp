// The subcommand table: names, operands, options, the write guard.
#include "erotctl_commands.hpp"

#include "invocation.hpp"
#include "read_commands.hpp"
#include "write_commands.hpp"

#include <array>
#include <string_view>

namespace erotctl
{

namespace
{

using Handler = Result (*)(const Invocation&);

struct Command
{
    std::string_view name;
    std::string_view operands; // as shown in the help, "" when none
    size_t operandCount;
    std::string_view option; // the one option it takes, "" when none
    bool changesDevice;
    std::string_view summary;
    Handler handler;
};

constexpr std::array commands = {
    Command{"active-flash", "", 0, "", false, "active and pending flash side",
            readActiveFlash},
    Command{"bpr", "", 0, "", false, "side of each component (boot partitions)",
            readBpr},
    Command{"component-info", "[--version 2|3|4]", 0, "--version", false,
            "firmware components as the eRoT sees them", readComponentInfo},
    Command{"bkc-manifest", "", 0, "", false,
            "versions of the known-good manifest", readBkcManifest},
    Command{"security-settings", "", 0, "", false,
            "security settings and NV token state", readSecuritySettings},
    Command{"persist", "", 0, "", false, "the SMC's persistent record, decoded",
            readPersist},
    Command{"auto-arb", "", 0, "", false,
            "automatic anti-rollback commit on or off", readAutoArb},
    Command{"trace-log", "[--basic]", 0, "--basic", false,
            "the trace log (--basic: the version 1 form)", readTraceLog},
    Command{"health", "", 0, "", false, "the health byte", readHealth},
    Command{"reset-reason", "", 0, "", false, "the stored reset reason",
            readResetReason},
    Command{"device-id", "", 0, "", false, "the 48-byte device identifier",
            readDeviceId},
    Command{"identity-hex", "", 0, "", false,
            "the identity as the eRoT renders it", readIdentityHex},
    Command{"key-revoke-bits", "", 0, "", false, "key revocation bits",
            readKeyRevokeBits},
    Command{"svn-revoke-bits", "", 0, "", false, "SVN revocation bits",
            readSvnRevokeBits},
    Command{"cert-chain", "[--out FILE]", 0, "--out", false,
            "certification chain, shown or saved to FILE", readCertChain},
    Command{"token-read", "", 0, "", false, "the installed token",
            readTokenRead},
    Command{"record-get", "", 0, "", false, "the 48-byte record slot",
            readRecordGet},
    Command{"select-flash", "SIDE [--persist]", 1, "--persist", true,
            "make side A or B active", writeSelectFlash},
    Command{"signal-boot-success", "STAGE", 1, "", true,
            "signal the end of the SMC's boot", writeSignalBootSuccess},
    Command{"arb-commit", "", 0, "", true, "commit anti-rollback now",
            writeArbCommit},
    Command{"set-auto-arb", "on|off", 1, "", true,
            "switch automatic anti-rollback commit", writeSetAutoArb},
    Command{"set-reset-reason", "N", 1, "", true, "store a reset reason",
            writeSetResetReason},
    Command{"system-reset", "TYPE", 1, "", true, "reset the system",
            writeSystemReset},
    Command{"persist-set", "HEX", 1, "", true,
            "replace the persistent record (hex)", writePersistSet},
    Command{"set-manageability", "FEATURE VALUE", 2, "", true,
            "set a manageability feature (0-31)", writeSetManageability},
};

const Command* findCommand(std::string_view name)
{
    for (const Command& command : commands)
    {
        if (command.name == name)
        {
            return &command;
        }
    }
    return nullptr;
}

// Whether the words fit the command; the message of the misfit if not.
std::string misfit(const Command& command, const Invocation& call)
{
    for (const auto& [option, value] : call.options)
    {
        if (option != command.option)
        {
            return call.command + " takes no option " + option;
        }
    }
    if (call.operands.size() != command.operandCount)
    {
        std::string usage = "erotctl " + call.command;
        if (!command.operands.empty())
        {
            usage += " " + std::string(command.operands);
        }
        return "wrong operands; usage: " + usage;
    }
    if (command.changesDevice && !call.write)
    {
        return call.command +
               " changes the eRoT's state; add --write to send it";
    }
    return "";
}

Result dispatch(const Invocation& call)
{
    const Command* command = findCommand(call.command);
    if (command == nullptr)
    {
        return usageError(call.command.empty()
                              ? "no subcommand given"
                              : "unknown subcommand " + call.command);
    }
    std::string problem = misfit(*command, call);
    if (!problem.empty())
    {
        return usageError(problem);
    }
    return command->handler(call);
}

Outcome render(const Result& result, bool json)
{
    if (json && !result.json.is_null())
    {
        return {result.exitCode, result.json.dump(2) + "\n", ""};
    }
    if (result.exitCode == exitSuccess)
    {
        return {result.exitCode, result.text, ""};
    }
    return {result.exitCode, "", result.text};
}

// One line per subcommand of the kind asked for.
std::string commandList(bool changesDevice)
{
    std::string text;
    for (const Command& command : commands)
    {
        if (command.changesDevice != changesDevice)
        {
            continue;
        }
        std::string left = "  " + std::string(command.name);
        if (!command.operands.empty())
        {
            left += " " + std::string(command.operands);
        }
        left.resize(std::max<size_t>(left.size() + 1, 36), ' ');
        text += left + std::string(command.summary) + "\n";
    }
    return text;
}

} // namespace

std::string helpText()
{
    return "Usage: erotctl [--json] [--write] SUBCOMMAND [OPERANDS]\n"
           "Reads the state of the board's eRoT; changes it only with "
           "--write.\n\nReading:\n" +
           commandList(false) + "\nWriting (need --write):\n" +
           commandList(true) +
           "\nOptions:\n"
           "  --json   one JSON object instead of text\n"
           "  --write  allow the subcommands that change the eRoT\n"
           "  --help   this list\n"
           "\nExit codes: 0 success, 1 refused by the device, "
           "2 usage error, 3 link failure.\n";
}

Outcome run(const std::vector<std::string>& words)
{
    auto parsed = parseInvocation(words);
    if (const auto* message = std::get_if<std::string>(&parsed))
    {
        return render(usageError(*message), false);
    }
    const auto& call = std::get<Invocation>(parsed);
    if (call.help)
    {
        return {exitSuccess, helpText(), ""};
    }
    return render(dispatch(call), call.json);
}

} // namespace erotctl
