#include "fakes/bus_fixture.hpp"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace orvane::test
{

namespace
{

constexpr const char* addressVariable = "DBUS_SYSTEM_BUS_ADDRESS";

[[noreturn]] void failed(const std::string& what, int error)
{
    throw std::runtime_error(what + ": " + std::strerror(error));
}

// Unix socket paths are short; a long TMPDIR would not fit.
std::filesystem::path makeTempDir()
{
    std::filesystem::path base = std::filesystem::temp_directory_path();
    std::string pattern =
        ((base.native().size() > 60 ? "/tmp" : base) / "orvane-bus-XXXXXX")
            .string();
    if (mkdtemp(pattern.data()) == nullptr)
    {
        failed("mkdtemp", errno);
    }
    return pattern;
}

void writeConfig(const std::filesystem::path& file, const std::string& listen)
{
    std::ofstream(file)
        << R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <auth>EXTERNAL</auth>
  <listen>)"
        << listen << R"(</listen>
  <policy context="default">
    <allow user="*"/><allow own="*"/><allow send_destination="*"/>
    <allow receive_sender="*"/><allow eavesdrop="true"/>
  </policy>
</busconfig>
)";
}

// The daemon prints its address once it listens; false when it died
// first.
bool announced(int fd)
{
    char byte = 0;
    while (read(fd, &byte, 1) == 1)
    {
        if (byte == '\n')
        {
            return true;
        }
    }
    return false;
}

} // namespace

size_t openFileDescriptors()
{
    return static_cast<size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                      std::filesystem::directory_iterator()));
}

PrivateBus::PrivateBus() : dir(makeTempDir())
{
    busAddress = "unix:path=" + (dir / "bus.sock").string();
    const std::string config = "--config-file=" + (dir / "bus.conf").string();
    const std::string logPath = (dir / "daemon.log").string();
    writeConfig(dir / "bus.conf", busAddress);
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0)
    {
        failed("pipe2", errno);
    }
    const pid_t parent = getpid();
    daemon = fork();
    if (daemon == 0)
    {
        // Only async-signal-safe calls until exec: the test process may have
        // threads. The daemon must not outlive a crashed test; its
        // complaints go to a file of its own.
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        int log = open(logPath.c_str(), O_WRONLY | O_CREAT, 0600);
        if (getppid() == parent && dup2(pipeFds[1], STDOUT_FILENO) >= 0 &&
            dup2(log, STDERR_FILENO) >= 0)
        {
            execlp("dbus-daemon", "dbus-daemon", config.c_str(), "--nofork",
                   "--nopidfile", "--nosyslog", "--print-address=1", nullptr);
        }
        _exit(127);
    }
    close(pipeFds[1]);
    const bool up = daemon > 0 && announced(pipeFds[0]);
    close(pipeFds[0]);
    if (!up)
    {
        stopDaemon();
        std::ifstream log(logPath);
        std::string complaint((std::istreambuf_iterator<char>(log)), {});
        std::filesystem::remove_all(dir);
        throw std::runtime_error("dbus-daemon did not start: " + complaint);
    }
    if (const char* previous = std::getenv(addressVariable))
    {
        previousAddress = previous;
    }
    setenv(addressVariable, busAddress.c_str(), 1);
}

PrivateBus::~PrivateBus()
{
    if (previousAddress)
    {
        setenv(addressVariable, previousAddress->c_str(), 1);
    }
    else
    {
        unsetenv(addressVariable);
    }
    stopDaemon();
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
}

void PrivateBus::stopDaemon()
{
    if (daemon > 0)
    {
        kill(daemon, SIGTERM);
        waitpid(daemon, nullptr, 0);
    }
    daemon = -1;
}

BusResponder::BusResponder(std::string busName) : busName(std::move(busName))
{}

BusResponder::~BusResponder()
{
    stop();
}

void BusResponder::addMethod(const std::string& path,
                             const std::string& interface,
                             const std::string& member,
                             const std::string& signature,
                             const std::string& result, Method handler)
{
    registrations[path].push_back([=, this](sdbus::IObject& object) {
        object.registerMethod(interface, member, signature, result,
                              [this, member, handler](sdbus::MethodCall call) {
                                  std::lock_guard lock(mutex);
                                  ++callCounts[member];
                                  sdbus::MethodReply reply = call.createReply();
                                  if (int r = handler(call, reply); r < 0)
                                  {
                                      // The caller's call returns this errno.
                                      throw sdbus::createError(-r, "");
                                  }
                                  reply.send();
                              });
    });
}

void BusResponder::addProperty(const std::string& path,
                               const std::string& interface,
                               const std::string& name, BusValue initial)
{
    Property& held = properties[{path, interface, name}];
    held.value = std::move(initial);
    const char* signature = held.value.index() == 0 ? "s" : "u";
    registrations[path].push_back([=, this, &held](sdbus::IObject& object) {
        object.registerProperty(
            interface, name, signature,
            [this, &held](sdbus::PropertyGetReply& reply) {
                std::lock_guard lock(mutex);
                std::visit([&reply](const auto& value) { reply << value; },
                           held.value);
            },
            [this, &held](sdbus::PropertySetCall& call) {
                std::lock_guard lock(mutex);
                std::visit([&call](auto& value) { call >> value; }, held.value);
                held.written.push_back(held.value);
            });
    });
}

void BusResponder::start()
{
    connection = sdbus::createSystemBusConnection(busName);
    for (const auto& [path, steps] : registrations)
    {
        objects.push_back(sdbus::createObject(*connection, path));
        for (const auto& step : steps)
        {
            step(*objects.back());
        }
        objects.back()->finishRegistration();
    }
    // The loop ends when stopped, or when the bus goes away.
    worker = std::thread([this] {
        try
        {
            connection->enterEventLoop();
        }
        catch (const sdbus::Error&)
        {}
    });
}

void BusResponder::stop()
{
    if (worker.joinable())
    {
        connection->leaveEventLoop();
        worker.join();
    }
    objects.clear();
    connection.reset();
}

std::unique_lock<std::mutex> BusResponder::hold()
{
    return std::unique_lock(mutex);
}

BusValue BusResponder::property(const std::string& path,
                                const std::string& interface,
                                const std::string& name)
{
    std::lock_guard lock(mutex);
    return properties.at({path, interface, name}).value;
}

std::vector<BusValue> BusResponder::writes(const std::string& path,
                                           const std::string& interface,
                                           const std::string& name)
{
    std::lock_guard lock(mutex);
    return properties.at({path, interface, name}).written;
}

int BusResponder::calls(const std::string& member)
{
    std::lock_guard lock(mutex);
    return callCounts[member];
}

} // namespace orvane::test
