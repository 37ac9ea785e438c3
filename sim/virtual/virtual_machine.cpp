#include "virtual/virtual_machine.hpp"

#include "utils/platform/real_shell.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <regex>
#include <sstream>

namespace ubbsim
{

namespace
{

// Board paths that live under the simulated root when a command names
// them. Anything else (busctl, dd, /bin/sh) is the machine's.
constexpr const char* boardPrefixes[] = {
    "/usr/sbin/",
    "/usr/share/images/",
    "/usr/bin/VR_fault_dump",
    "/usr/bin/zel-rm",
    "/run/",
    "/tmp/",
    "/var/lib/",
    "/sys/",
    "/dev/mtd",
};

using namespace std::chrono_literals;

// Starting a command: a fork and exec of the shell on the SMC.
constexpr SimTime commandStart = 10ms;

// A command's pipe that keeps board time still until it is closed.
class HeldPipe : public orvane::platform::ShellPipe
{
  public:
    HeldPipe(std::unique_ptr<orvane::platform::ShellPipe> pipe,
             std::unique_ptr<SimClock::Hold> hold, const SimClock& clock) :
        pipe(std::move(pipe)),
        hold(std::move(hold)), clock(clock)
    {}
    ~HeldPipe() override
    {
        release();
    }
    HeldPipe(const HeldPipe&) = delete;
    HeldPipe& operator=(const HeldPipe&) = delete;

    size_t read(char* buffer, size_t length) override
    {
        return pipe->read(buffer, length);
    }
    int close() override
    {
        int status = pipe->close();
        release();
        return status;
    }

  private:
    void release()
    {
        if (hold)
        {
            hold.reset();
            clock.advanceTo(clock.now() + commandStart);
        }
    }

    std::unique_ptr<orvane::platform::ShellPipe> pipe;
    std::unique_ptr<SimClock::Hold> hold;
    const SimClock& clock;
};

bool startsPath(const std::string& text, size_t at)
{
    if (at == 0)
    {
        return true;
    }
    char before = text[at - 1];
    return before == ' ' || before == '=' || before == '>' || before == '<' ||
           before == '"' || before == '\'' || before == '(' || before == '\t';
}

} // namespace

std::chrono::steady_clock::time_point VirtualClock::steadyNow()
{
    return std::chrono::steady_clock::time_point(
        std::chrono::duration_cast<std::chrono::steady_clock::duration>(
            clock.now()));
}

std::chrono::system_clock::time_point VirtualClock::wallNow()
{
    return clock.wallAt(clock.now());
}

VirtualClock::VirtualClock(const TimeBase& base,
                           const std::string& sleepLedger) :
    clock(base)
{
    if (!sleepLedger.empty())
    {
        ledger = std::fopen(sleepLedger.c_str(), "a");
    }
}

void VirtualClock::sleepFor(std::chrono::nanoseconds duration)
{
    if (ledger != nullptr && ::gettid() == ::getpid())
    {
        std::fprintf(ledger, "%.9f %.9f\n",
                     std::chrono::duration<double>(clock.now()).count(),
                     std::chrono::duration<double>(duration).count());
        std::fflush(ledger);
    }
    clock.sleepFor(duration);
}

std::filesystem::path VirtualFileRoot::resolve(std::string_view absolute)
{
    return std::filesystem::path(root) /
           std::filesystem::path(absolute).relative_path();
}

std::string VirtualShell::rewrite(const std::string& command) const
{
    std::string out;
    for (size_t i = 0; i < command.size(); ++i)
    {
        if (command[i] == '/' && startsPath(command, i))
        {
            for (const char* prefix : boardPrefixes)
            {
                if (command.compare(i, std::string_view(prefix).size(),
                                    prefix) == 0)
                {
                    out += root;
                    break;
                }
            }
        }
        out += command[i];
    }
    return "PATH='" + root + "/usr/sbin:" + root + "/usr/bin:'\"$PATH\"; " +
           out;
}

std::optional<int> VirtualShell::driverWrite(const std::string& command)
{
    static const std::regex echo(R"(^\s*echo\s+(\S+)\s*>\s*)"
                                 R"((/sys/bus/platform/drivers/[^/\s]+/)"
                                 R"((un)?bind)\s*$)");
    std::smatch parts;
    if (board == nullptr || !std::regex_match(command, parts, echo))
    {
        return std::nullopt;
    }
    WireWriter out;
    out.u8(static_cast<uint8_t>(Op::driverWrite))
        .str(parts[2].str())
        .str(parts[1].str() + "\n");
    auto reply = board->call(out);
    // The shell's echo reports a refused write with exit status 1.
    bool written = !reply.empty() && WireReader(reply).i32() == 0;
    return written ? 0 : 1 << 8;
}

void VirtualShell::reportTool(const std::string& command, int status)
{
    std::istringstream words(command);
    std::string tool;
    words >> tool;
    if (board == nullptr || status != 0 ||
        (!tool.starts_with("/usr/sbin/") && !tool.starts_with("/usr/bin/")))
    {
        return;
    }
    std::vector<std::string> arguments;
    for (std::string word; words >> word && arguments.size() < 255;)
    {
        arguments.push_back(word);
    }
    WireWriter out;
    out.u8(static_cast<uint8_t>(Op::toolRun))
        .str(tool)
        .u8(static_cast<uint8_t>(arguments.size()));
    for (const std::string& argument : arguments)
    {
        out.str(argument);
    }
    // A tool the board doesn't model changes nothing there.
    board->call(out);
}

VirtualShell::VirtualShell(std::string root, BoardPort* board,
                           std::optional<TimeBase> time) :
    root(std::move(root)),
    board(board)
{
    if (time)
    {
        clock.emplace(*time);
    }
}

int VirtualShell::system(const std::string& command)
{
    if (auto status = driverWrite(command))
    {
        return *status;
    }
    if (!clock)
    {
        int status = std::system(rewrite(command).c_str());
        reportTool(command, status);
        return status;
    }
    SimClock::Hold hold(*clock);
    int status = std::system(rewrite(command).c_str());
    reportTool(command, status);
    clock->advanceTo(clock->now() + commandStart);
    return status;
}

std::unique_ptr<orvane::platform::ShellPipe> VirtualShell::popen(
    const std::string& command)
{
    static auto machine = orvane::platform::makeRealShell();
    if (!clock)
    {
        return machine->popen(rewrite(command));
    }
    auto hold = std::make_unique<SimClock::Hold>(*clock);
    auto pipe = machine->popen(rewrite(command));
    if (!pipe)
    {
        return nullptr;
    }
    return std::make_unique<HeldPipe>(std::move(pipe), std::move(hold), *clock);
}

orvane::platform::DevMemResult VirtualDevMem::readWord(uint64_t base,
                                                       uint32_t mapLength,
                                                       uint32_t offset,
                                                       uint32_t& value)
{
    WireWriter out;
    out.u8(static_cast<uint8_t>(Op::devMemRead))
        .u64(base)
        .u32(mapLength)
        .u32(offset);
    auto reply = link.call(out);
    if (reply.empty())
    {
        return orvane::platform::DevMemResult::openFailed;
    }
    WireReader in(reply);
    int32_t result = in.i32();
    if (result < 0)
    {
        return orvane::platform::DevMemResult::mmapFailed;
    }
    value = in.u32();
    return orvane::platform::DevMemResult::ok;
}

int VirtualRetimer::ensureRetimerDevImage(int switchValue,
                                          const std::string& imagePath)
{
    WireWriter out;
    out.u8(static_cast<uint8_t>(Op::retimerEnsure))
        .i32(switchValue)
        .str(imagePath);
    auto reply = link.call(out);
    return reply.empty() ? -EIO : WireReader(reply).i32();
}

} // namespace ubbsim
