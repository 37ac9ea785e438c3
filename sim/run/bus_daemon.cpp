#include "run/bus_daemon.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace ubbsim
{

namespace
{

void writeConfig(const std::string& path, const std::string& socket)
{
    std::ofstream out(path);
    out << "<!DOCTYPE busconfig PUBLIC "
           "\"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/"
           "busconfig.dtd\">\n"
           "<busconfig>\n"
           "  <type>system</type>\n"
           "  <auth>EXTERNAL</auth>\n"
           "  <listen>unix:path="
        << socket
        << "</listen>\n"
           "  <policy context=\"default\">\n"
           "    <allow user=\"*\"/><allow own=\"*\"/>"
           "<allow send_destination=\"*\"/>\n"
           "    <allow receive_sender=\"*\"/><allow eavesdrop=\"true\"/>\n"
           "  </policy>\n"
           "</busconfig>\n";
}

// The socket file appears a moment before dbus-daemon listens on it: ready
// means a connection is accepted.
bool exists(const std::string& path)
{
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
    {
        return false;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    bool accepted = ::connect(fd, reinterpret_cast<sockaddr*>(&address),
                              sizeof(address)) == 0;
    ::close(fd);
    return accepted;
}

} // namespace

BusDaemon::BusDaemon(const std::string& directory)
{
    std::string config = directory + "/bus.conf";
    std::string socket = directory + "/bus.sock";
    writeConfig(config, socket);
    pid = ::fork();
    if (pid == 0)
    {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        // Its complaints (fd limits of an unprivileged run) stay in the
        // scratch directory unless it fails to start.
        std::string log = directory + "/bus.log";
        int logFd = ::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (logFd >= 0)
        {
            ::dup2(logFd, STDERR_FILENO);
            ::dup2(logFd, STDOUT_FILENO);
        }
        std::string configArg = "--config-file=" + config;
        ::execlp("dbus-daemon", "dbus-daemon", configArg.c_str(), "--nofork",
                 "--nopidfile", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    if (pid < 0)
    {
        throw std::runtime_error("cannot start dbus-daemon");
    }
    for (int i = 0; i < 500 && !exists(socket); ++i)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        int status = 0;
        if (::waitpid(pid, &status, WNOHANG) == pid)
        {
            pid = -1;
            throw std::runtime_error("dbus-daemon ended at start; is the "
                                     "dbus-daemon package installed?");
        }
    }
    if (!exists(socket))
    {
        throw std::runtime_error("dbus-daemon did not listen on its socket");
    }
    busAddress = "unix:path=" + socket;
}

BusDaemon::~BusDaemon()
{
    if (pid > 0)
    {
        ::kill(pid, SIGTERM);
        ::waitpid(pid, nullptr, 0);
    }
}

} // namespace ubbsim
