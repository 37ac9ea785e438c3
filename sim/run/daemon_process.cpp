#include "run/daemon_process.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace ubbsim
{

DaemonProcess::DaemonProcess(std::string program, Environment environment,
                             const std::string& trailPath, bool echo,
                             const SimClock& clock) :
    program(std::move(program)),
    environment(std::move(environment)), trail(trailPath, std::ios::app),
    echo(echo), clock(clock)
{}

DaemonProcess::~DaemonProcess()
{
    kill();
}

void DaemonProcess::start()
{
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0)
    {
        throw std::runtime_error("cannot make the daemon's output pipe");
    }
    // A daemon built for another architecture runs under the emulator that
    // UBBSIM_EXEC_WRAPPER names (e.g. qemu-arm): it can't rely on binfmt_misc.
    const char* wrapper = std::getenv("UBBSIM_EXEC_WRAPPER");
    std::string launcher = wrapper != nullptr ? wrapper : "";
    pid = ::fork();
    if (pid == 0)
    {
        // The daemon never ends by itself: it must not outlive the run.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        clock.holdUntilDropped();
        ::dup2(pipeFds[1], STDOUT_FILENO);
        ::dup2(pipeFds[1], STDERR_FILENO);
        for (const auto& [name, value] : environment)
        {
            ::setenv(name.c_str(), value.c_str(), 1);
        }
        if (launcher.empty())
        {
            ::execl(program.c_str(), program.c_str(),
                    static_cast<char*>(nullptr));
        }
        else
        {
            ::execlp(launcher.c_str(), launcher.c_str(), program.c_str(),
                     static_cast<char*>(nullptr));
        }
        std::perror(program.c_str());
        ::_exit(127);
    }
    ::close(pipeFds[1]);
    if (pid < 0)
    {
        ::close(pipeFds[0]);
        throw std::runtime_error("cannot start " + program);
    }
    reaped = false;
    ++startCount;
    reader = std::thread(&DaemonProcess::pump, this, pipeFds[0]);
}

void DaemonProcess::pump(int fd)
{
    FILE* stream = ::fdopen(fd, "r");
    char* line = nullptr;
    size_t capacity = 0;
    while (::getline(&line, &capacity, stream) > 0)
    {
        std::lock_guard lock(mutex);
        trail << line;
        trail.flush();
        if (echo)
        {
            std::cout << line << std::flush;
        }
    }
    std::free(line);
    std::fclose(stream);
}

void DaemonProcess::note(const std::string& line)
{
    std::lock_guard lock(mutex);
    trail << line << "\n";
    trail.flush();
    if (echo)
    {
        std::cout << line << "\n" << std::flush;
    }
}

bool DaemonProcess::running()
{
    if (pid <= 0 || reaped)
    {
        return false;
    }
    if (::waitpid(pid, &status, WNOHANG) == pid)
    {
        reaped = true;
        return false;
    }
    return true;
}

void DaemonProcess::kill()
{
    if (pid > 0 && !reaped)
    {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, &status, 0);
        reaped = true;
    }
    if (reader.joinable())
    {
        reader.join();
    }
}

namespace
{

// The first number after `key` in a /proc file of the process; 0 without.
long procField(pid_t pid, const char* file, std::string_view key)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/" + file);
    for (std::string line; std::getline(in, line);)
    {
        if (line.starts_with(key))
        {
            return std::strtol(line.c_str() + key.size(), nullptr, 10);
        }
    }
    return 0;
}

} // namespace

long DaemonProcess::peakRssKb()
{
    return running() ? procField(pid, "status", "VmHWM:") : 0;
}

long DaemonProcess::pssKb()
{
    return running() ? procField(pid, "smaps_rollup", "Pss:") : 0;
}

long DaemonProcess::privateKb()
{
    return running() ? procField(pid, "smaps_rollup", "Private_Clean:") +
                           procField(pid, "smaps_rollup", "Private_Dirty:")
                     : 0;
}

double DaemonProcess::cpuSeconds()
{
    if (!running())
    {
        return 0;
    }
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)),
                     std::istreambuf_iterator<char>());
    // Fields after the command name, which may hold blanks: state is the
    // first, utime the twelfth and stime the thirteenth.
    auto close = text.rfind(')');
    if (close == std::string::npos)
    {
        return 0;
    }
    std::istringstream fields(text.substr(close + 2));
    std::string field;
    unsigned long long ticks = 0;
    for (int i = 1; i <= 13 && fields >> field; ++i)
    {
        if (i >= 12)
        {
            ticks += std::stoull(field);
        }
    }
    return static_cast<double>(ticks) /
           static_cast<double>(::sysconf(_SC_CLK_TCK));
}

std::string DaemonProcess::lastExit() const
{
    if (!reaped)
    {
        return "running";
    }
    if (WIFSIGNALED(status))
    {
        return WTERMSIG(status) == SIGKILL
                   ? "killed by the run"
                   : "died on signal " + std::to_string(WTERMSIG(status));
    }
    return "exited with status " + std::to_string(WEXITSTATUS(status));
}

} // namespace ubbsim
