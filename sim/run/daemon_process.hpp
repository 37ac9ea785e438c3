#pragma once

#include "common/sim_clock.hpp"

#include <sys/types.h>

#include <atomic>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace ubbsim
{

// The daemon under test as a child process. Its standard output is the
// trail: every line goes to the trail file and, unless quiet, to ours.
class DaemonProcess
{
  public:
    using Environment = std::vector<std::pair<std::string, std::string>>;

    // Board time on `clock` stands still from each start until the daemon
    // runs and lets go of it.
    DaemonProcess(std::string program, Environment environment,
                  const std::string& trailPath, bool echo,
                  const SimClock& clock);
    ~DaemonProcess();
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;

    void start();
    // SIGKILL and reap: the daemon has no shutdown path of its own.
    void kill();
    bool running();
    int starts() const
    {
        return startCount;
    }
    // Of the last start; -1 before the first.
    pid_t processId() const
    {
        return pid;
    }
    // CPU seconds (user and system, all threads) of the running daemon; 0
    // when it isn't running.
    double cpuSeconds();
    // Peak resident set (VmHWM) of the running daemon; its present
    // proportional set (shared library pages divided among their users) and
    // its private pages alone; in kB, 0 when it isn't running.
    long peakRssKb();
    long pssKb();
    long privateKb();
    // How the last run ended, as a text for the summary.
    std::string lastExit() const;
    // A line of the board's own in the trail, between the daemon's.
    void note(const std::string& line);

  private:
    void pump(int fd);

    std::string program;
    Environment environment;
    std::ofstream trail;
    bool echo;
    const SimClock& clock;
    pid_t pid = -1;
    int status = 0;
    bool reaped = false;
    int startCount = 0;
    std::thread reader;
    std::mutex mutex;
};

} // namespace ubbsim
