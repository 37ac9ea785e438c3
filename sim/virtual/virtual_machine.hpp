#pragma once

#include "common/sim_clock.hpp"
#include "utils/platform/clock.hpp"
#include "utils/platform/dev_mem.hpp"
#include "utils/platform/file_root.hpp"
#include "utils/platform/retimer_lib.hpp"
#include "utils/platform/shell.hpp"
#include "virtual/board_link.hpp"

#include <cstdio>
#include <optional>
#include <string>

namespace ubbsim
{

// Board time for the daemon: the same time base as ubb-sim's. When asked
// to, it writes each sleep of the main thread (board start time and
// length, in seconds) to a ledger, for measuring how much of a sequence is
// prescribed delay.
class VirtualClock : public orvane::platform::Clock
{
  public:
    explicit VirtualClock(const TimeBase& base,
                          const std::string& sleepLedger = "");

    std::chrono::steady_clock::time_point steadyNow() override;
    std::chrono::system_clock::time_point wallNow() override;
    void sleepFor(std::chrono::nanoseconds duration) override;

  private:
    SimClock clock;
    FILE* ledger = nullptr;
};

// The board's files under the simulated root directory.
class VirtualFileRoot : public orvane::platform::FileRoot
{
  public:
    explicit VirtualFileRoot(std::string root) : root(std::move(root))
    {}

    std::filesystem::path resolve(std::string_view absolute) override;

  private:
    std::string root;
};

// Commands run by the machine's shell, with the board's absolute paths
// moved under the simulated root and its tools first on the PATH; busctl
// and dd stay the machine's own. With a board, an echo into a driver's
// sysfs bind or unbind file goes to the board, which binds or unbinds as
// the kernel would. With a time base, board time stands still while a
// command runs (until its pipe is closed) and each command costs what
// starting one costs on the SMC.
class VirtualShell : public orvane::platform::Shell
{
  public:
    explicit VirtualShell(std::string root, BoardPort* board = nullptr,
                          std::optional<TimeBase> time = std::nullopt);

    int system(const std::string& command) override;
    std::unique_ptr<orvane::platform::ShellPipe> popen(
        const std::string& command) override;

    std::string rewrite(const std::string& command) const;

  private:
    // The wait status of a driver file write, or none for other commands.
    std::optional<int> driverWrite(const std::string& command);
    // Tells the board that a tool of the SMC ended well, so that the
    // devices it programs take its image.
    void reportTool(const std::string& command, int status);

    std::string root;
    BoardPort* board;
    std::optional<SimClock> clock;
};

class VirtualDevMem : public orvane::platform::DevMem
{
  public:
    explicit VirtualDevMem(BoardPort& link) : link(link)
    {}

    orvane::platform::DevMemResult readWord(uint64_t base, uint32_t mapLength,
                                            uint32_t offset,
                                            uint32_t& value) override;

  private:
    BoardPort& link;
};

class VirtualRetimer : public orvane::platform::RetimerLib
{
  public:
    explicit VirtualRetimer(BoardPort& link) : link(link)
    {}

    int ensureRetimerDevImage(int switchValue,
                              const std::string& imagePath) override;

  private:
    BoardPort& link;
};

} // namespace ubbsim
