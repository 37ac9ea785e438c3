#include "fakes/bus_fixture.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <type_traits>

namespace orvane::test
{

namespace
{

constexpr const char* addressVariable = "DBUS_SYSTEM_BUS_ADDRESS";
constexpr int startTimeoutMs = 5000;

std::string errnoText(const std::string& what, int error)
{
    return what + ": " + std::strerror(error);
}

std::filesystem::path findDaemon()
{
    const char* path = std::getenv("PATH");
    std::string dirs = path != nullptr ? path : "/usr/bin:/bin";
    size_t start = 0;
    while (start <= dirs.size())
    {
        size_t end = dirs.find(':', start);
        if (end == std::string::npos)
        {
            end = dirs.size();
        }
        std::filesystem::path candidate =
            std::filesystem::path(dirs.substr(start, end - start)) /
            "dbus-daemon";
        if (access(candidate.c_str(), X_OK) == 0)
        {
            return candidate;
        }
        start = end + 1;
    }
    throw std::runtime_error("dbus-daemon is not installed");
}

// Unix socket paths are short; a long TMPDIR would not fit.
std::filesystem::path makeTempDir()
{
    std::filesystem::path base = std::filesystem::temp_directory_path();
    if (base.native().size() > 60)
    {
        base = "/tmp";
    }
    std::string pattern = (base / "orvane-bus-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
    {
        throw std::runtime_error(errnoText("mkdtemp", errno));
    }
    return pattern;
}

void writeConfig(const std::filesystem::path& file, const std::string& listen)
{
    std::ofstream out(file);
    out << R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
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
    if (!out.flush())
    {
        throw std::runtime_error("cannot write " + file.string());
    }
}

// The first line the daemon prints is its address, and it prints it once it
// listens. Empty when the daemon died or stayed silent.
std::string readAddress(int fd)
{
    std::string text;
    auto deadline = std::chrono::steady_clock::now() +
                    std::chrono::milliseconds(startTimeoutMs);
    while (text.find('\n') == std::string::npos)
    {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                        deadline - std::chrono::steady_clock::now())
                        .count();
        pollfd entry{fd, POLLIN, 0};
        int ready = left <= 0 ? 0 : poll(&entry, 1, static_cast<int>(left));
        if (ready < 0 && errno == EINTR)
        {
            continue;
        }
        if (ready <= 0)
        {
            return {};
        }
        char chunk[256];
        ssize_t n = read(fd, chunk, sizeof(chunk));
        if (n <= 0)
        {
            return {};
        }
        text.append(chunk, static_cast<size_t>(n));
    }
    return text.substr(0, text.find('\n'));
}

} // namespace

PrivateBus::PrivateBus() : dir(makeTempDir())
{
    std::string listen = "unix:path=" + (dir / "bus.sock").string();
    std::filesystem::path config = dir / "bus.conf";
    try
    {
        writeConfig(config, listen);
        std::string program = findDaemon().string();
        std::string configArg = "--config-file=" + config.string();
        std::vector<char*> argv = {program.data(),
                                   configArg.data(),
                                   const_cast<char*>("--nofork"),
                                   const_cast<char*>("--nopidfile"),
                                   const_cast<char*>("--nosyslog"),
                                   const_cast<char*>("--print-address=1"),
                                   nullptr};

        // The daemon's complaints go to a file of its own, not into the
        // test's output; they are shown if it fails to start.
        std::string logPath = (dir / "daemon.log").string();
        int logFd = open(logPath.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        if (logFd < 0)
        {
            throw std::runtime_error(errnoText("open " + logPath, errno));
        }
        int pipeFds[2];
        if (pipe2(pipeFds, O_CLOEXEC) != 0)
        {
            int error = errno;
            close(logFd);
            throw std::runtime_error(errnoText("pipe2", error));
        }
        pid_t parent = getpid();
        daemon = fork();
        if (daemon == 0)
        {
            // Only async-signal-safe calls until exec: the test process may
            // have threads. The daemon must not outlive a crashed test.
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            if (getppid() != parent || dup2(pipeFds[1], STDOUT_FILENO) < 0 ||
                dup2(logFd, STDERR_FILENO) < 0)
            {
                _exit(127);
            }
            execv(argv[0], argv.data());
            _exit(127);
        }
        int forkError = errno;
        close(pipeFds[1]);
        close(logFd);
        if (daemon < 0)
        {
            close(pipeFds[0]);
            throw std::runtime_error(errnoText("fork", forkError));
        }
        std::string printed = readAddress(pipeFds[0]);
        close(pipeFds[0]);
        if (printed.empty())
        {
            stopDaemon();
            std::ifstream log(logPath);
            std::string complaint((std::istreambuf_iterator<char>(log)),
                                  std::istreambuf_iterator<char>());
            throw std::runtime_error("dbus-daemon did not start: " + complaint);
        }
        busAddress = listen;
    }
    catch (...)
    {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
        throw;
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
    if (daemon <= 0)
    {
        return;
    }
    kill(daemon, SIGTERM);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (waitpid(daemon, nullptr, WNOHANG) == 0)
    {
        if (std::chrono::steady_clock::now() > deadline)
        {
            kill(daemon, SIGKILL);
            waitpid(daemon, nullptr, 0);
            break;
        }
        usleep(1000);
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
    interfaceFor(path, interface)
        .methods.push_back({member, signature, result, std::move(handler)});
}

void BusResponder::addProperty(const std::string& path,
                               const std::string& interface,
                               const std::string& name, BusValue initial)
{
    static constexpr const char* signatures[] = {"s", "b", "i", "u"};
    interfaceFor(path, interface)
        .properties.push_back(
            {name, signatures[initial.index()], std::move(initial), {}});
}

BusResponder::Interface& BusResponder::interfaceFor(
    const std::string& path, const std::string& interface)
{
    if (bus != nullptr)
    {
        throw std::logic_error("objects are added before start()");
    }
    for (auto& entry : interfaces)
    {
        if (entry.path == path && entry.name == interface)
        {
            return entry;
        }
    }
    return interfaces.emplace_back(
        Interface{this, path, interface, {}, {}, {}, nullptr});
}

void BusResponder::buildVtable(Interface& entry)
{
    entry.vtable.push_back(SD_BUS_VTABLE_START(0));
    for (const auto& handler : entry.methods)
    {
        entry.vtable.push_back(SD_BUS_METHOD_WITH_OFFSET(
            handler.member.c_str(), handler.signature.c_str(),
            handler.result.c_str(), &BusResponder::onMethod, 0,
            SD_BUS_VTABLE_UNPRIVILEGED));
    }
    for (const auto& property : entry.properties)
    {
        entry.vtable.push_back(SD_BUS_WRITABLE_PROPERTY(
            property.name.c_str(), property.signature.c_str(),
            &BusResponder::onGet, &BusResponder::onSet, 0,
            SD_BUS_VTABLE_UNPRIVILEGED));
    }
    entry.vtable.push_back(SD_BUS_VTABLE_END);
}

void BusResponder::start()
{
    int r = sd_bus_open_system(&bus);
    if (r < 0)
    {
        bus = nullptr;
        throw std::runtime_error(errnoText("sd_bus_open_system", -r));
    }
    try
    {
        for (auto& entry : interfaces)
        {
            buildVtable(entry);
            r = sd_bus_add_object_vtable(bus, &entry.slot, entry.path.c_str(),
                                         entry.name.c_str(),
                                         entry.vtable.data(), &entry);
            if (r < 0)
            {
                throw std::runtime_error(
                    errnoText("sd_bus_add_object_vtable", -r));
            }
        }
        r = sd_bus_request_name(bus, busName.c_str(), 0);
        if (r < 0)
        {
            throw std::runtime_error(errnoText("sd_bus_request_name", -r));
        }
        stopEvent = eventfd(0, EFD_CLOEXEC);
        if (stopEvent < 0)
        {
            throw std::runtime_error(errnoText("eventfd", errno));
        }
    }
    catch (...)
    {
        disconnect();
        throw;
    }
    worker = std::thread([this] { serve(); });
}

void BusResponder::stop()
{
    if (worker.joinable())
    {
        uint64_t one = 1;
        if (write(stopEvent, &one, sizeof(one)) != sizeof(one))
        {
            std::abort();
        }
        worker.join();
    }
    disconnect();
}

void BusResponder::disconnect()
{
    for (auto& entry : interfaces)
    {
        entry.slot = sd_bus_slot_unref(entry.slot);
        entry.vtable.clear();
    }
    bus = sd_bus_flush_close_unref(bus);
    if (stopEvent >= 0)
    {
        close(stopEvent);
        stopEvent = -1;
    }
}

void BusResponder::serve()
{
    for (;;)
    {
        int r = 0;
        do
        {
            r = sd_bus_process(bus, nullptr);
        } while (r > 0);
        if (r < 0)
        {
            return; // the daemon went away
        }

        uint64_t until = 0;
        int timeoutMs = -1;
        if (sd_bus_get_timeout(bus, &until) > 0 && until != UINT64_MAX)
        {
            timespec now{};
            clock_gettime(CLOCK_MONOTONIC, &now);
            uint64_t nowUs = static_cast<uint64_t>(now.tv_sec) * 1'000'000 +
                             static_cast<uint64_t>(now.tv_nsec) / 1000;
            timeoutMs = until <= nowUs
                            ? 0
                            : static_cast<int>((until - nowUs + 999) / 1000);
        }
        pollfd fds[2] = {
            {sd_bus_get_fd(bus), static_cast<short>(sd_bus_get_events(bus)), 0},
            {stopEvent, POLLIN, 0}};
        if (poll(fds, 2, timeoutMs) < 0 && errno != EINTR)
        {
            return;
        }
        if ((fds[1].revents & POLLIN) != 0)
        {
            return;
        }
    }
}

std::unique_lock<std::mutex> BusResponder::hold()
{
    return std::unique_lock(mutex);
}

BusResponder::Property& BusResponder::propertyOf(const std::string& path,
                                                 const std::string& interface,
                                                 const std::string& name)
{
    for (auto& entry : interfaces)
    {
        if (entry.path != path || entry.name != interface)
        {
            continue;
        }
        for (auto& property : entry.properties)
        {
            if (property.name == name)
            {
                return property;
            }
        }
    }
    throw std::invalid_argument("no property " + name);
}

BusValue BusResponder::property(const std::string& path,
                                const std::string& interface,
                                const std::string& name)
{
    std::lock_guard lock(mutex);
    return propertyOf(path, interface, name).value;
}

std::vector<BusValue> BusResponder::writes(const std::string& path,
                                           const std::string& interface,
                                           const std::string& name)
{
    std::lock_guard lock(mutex);
    return propertyOf(path, interface, name).written;
}

int BusResponder::calls(const std::string& member)
{
    std::lock_guard lock(mutex);
    auto found = callCounts.find(member);
    return found == callCounts.end() ? 0 : found->second;
}

int BusResponder::onMethod(sd_bus_message* call, void* userdata, sd_bus_error*)
{
    auto& entry = *static_cast<Interface*>(userdata);
    std::string member = sd_bus_message_get_member(call);
    const Method* method = nullptr;
    for (const auto& handler : entry.methods)
    {
        if (handler.member == member)
        {
            method = &handler.method;
        }
    }
    if (method == nullptr)
    {
        return -EOPNOTSUPP;
    }

    sd_bus_message* reply = nullptr;
    int r = sd_bus_message_new_method_return(call, &reply);
    if (r < 0)
    {
        return r;
    }
    {
        std::lock_guard lock(entry.owner->mutex);
        ++entry.owner->callCounts[member];
        r = (*method)(call, reply);
    }
    if (r >= 0)
    {
        r = sd_bus_send(nullptr, reply, nullptr);
    }
    sd_bus_message_unref(reply);
    // A negative result makes the library answer with that errno.
    return r < 0 ? r : 1;
}

int BusResponder::onGet(sd_bus*, const char*, const char*, const char* property,
                        sd_bus_message* reply, void* userdata, sd_bus_error*)
{
    auto& entry = *static_cast<Interface*>(userdata);
    std::lock_guard lock(entry.owner->mutex);
    const BusValue& value =
        entry.owner->propertyOf(entry.path, entry.name, property).value;
    return std::visit(
        [reply](const auto& held) -> int {
            using T = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<T, std::string>)
            {
                return sd_bus_message_append(reply, "s", held.c_str());
            }
            else if constexpr (std::is_same_v<T, bool>)
            {
                return sd_bus_message_append(reply, "b", int{held});
            }
            else if constexpr (std::is_same_v<T, int32_t>)
            {
                return sd_bus_message_append(reply, "i", held);
            }
            else
            {
                return sd_bus_message_append(reply, "u", held);
            }
        },
        value);
}

int BusResponder::onSet(sd_bus*, const char*, const char*, const char* property,
                        sd_bus_message* value, void* userdata, sd_bus_error*)
{
    auto& entry = *static_cast<Interface*>(userdata);
    std::lock_guard lock(entry.owner->mutex);
    Property& target =
        entry.owner->propertyOf(entry.path, entry.name, property);
    // The library has already checked the variant against the signature.
    BusValue next;
    int r = 0;
    switch (target.signature[0])
    {
        case 's':
        {
            const char* text = nullptr;
            r = sd_bus_message_read(value, "s", &text);
            next = std::string(text != nullptr ? text : "");
            break;
        }
        case 'b':
        {
            int flag = 0;
            r = sd_bus_message_read(value, "b", &flag);
            next = flag != 0;
            break;
        }
        case 'i':
        {
            int32_t number = 0;
            r = sd_bus_message_read(value, "i", &number);
            next = number;
            break;
        }
        default:
        {
            uint32_t number = 0;
            r = sd_bus_message_read(value, "u", &number);
            next = number;
            break;
        }
    }
    if (r < 0)
    {
        return r;
    }
    target.value = next;
    target.written.push_back(std::move(next));
    return 1;
}

} // namespace orvane::test
