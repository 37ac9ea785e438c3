#include "fakes/bus_fixture.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
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

// The daemon prints its address once it listens. False when it died or
// stayed silent for five seconds.
bool announced(int fd)
{
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::seconds(5);
    std::string text;
    while (text.find('\n') == std::string::npos)
    {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd entry{fd, POLLIN, 0};
        const int ready = left.count() > 0
                              ? poll(&entry, 1, static_cast<int>(left.count()))
                              : 0;
        if (ready < 0 && errno == EINTR)
        {
            continue;
        }
        char chunk[256];
        const ssize_t got = ready > 0 ? read(fd, chunk, sizeof(chunk)) : 0;
        if (got <= 0)
        {
            return false;
        }
        text.append(chunk, static_cast<size_t>(got));
    }
    return true;
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
    interfaceFor(path, interface)
        .methods.push_back({member, signature, result, std::move(handler)});
}

void BusResponder::addProperty(const std::string& path,
                               const std::string& interface,
                               const std::string& name, BusValue initial)
{
    static constexpr const char* signatures[] = {"s", "u"};
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
    for (auto entry = interfaces.begin(); r >= 0 && entry != interfaces.end();
         ++entry)
    {
        buildVtable(*entry);
        r = sd_bus_add_object_vtable(bus, &entry->slot, entry->path.c_str(),
                                     entry->name.c_str(), entry->vtable.data(),
                                     &*entry);
    }
    if (r >= 0)
    {
        r = sd_bus_request_name(bus, busName.c_str(), 0);
    }
    if (r < 0)
    {
        disconnect();
        failed("cannot serve " + busName, -r);
    }
    stopping = false;
    worker = std::thread([this] { serve(); });
}

void BusResponder::stop()
{
    stopping = true;
    if (worker.joinable())
    {
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
}

// Serves until stop(), looking for it every few milliseconds; ends early
// when the daemon goes away.
void BusResponder::serve()
{
    while (!stopping)
    {
        int r = 0;
        while ((r = sd_bus_process(bus, nullptr)) > 0)
        {}
        if (r < 0 || sd_bus_wait(bus, 5'000) < 0)
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
        for (auto& property : entry.properties)
        {
            if (entry.path == path && entry.name == interface &&
                property.name == name)
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
    return callCounts[member];
}

int BusResponder::onMethod(sd_bus_message* call, void* userdata, sd_bus_error*)
{
    auto& entry = *static_cast<Interface*>(userdata);
    const std::string member = sd_bus_message_get_member(call);
    for (const auto& handler : entry.methods)
    {
        if (handler.member != member)
        {
            continue;
        }
        sd_bus_message* reply = nullptr;
        int r = sd_bus_message_new_method_return(call, &reply);
        if (r >= 0)
        {
            std::lock_guard lock(entry.owner->mutex);
            ++entry.owner->callCounts[member];
            r = handler.method(call, reply);
        }
        if (r >= 0)
        {
            r = sd_bus_send(nullptr, reply, nullptr);
        }
        sd_bus_message_unref(reply);
        // A negative result makes the library answer with that errno.
        return r < 0 ? r : 1;
    }
    return -EOPNOTSUPP;
}

int BusResponder::onGet(sd_bus*, const char*, const char*, const char* property,
                        sd_bus_message* reply, void* userdata, sd_bus_error*)
{
    auto& entry = *static_cast<Interface*>(userdata);
    std::lock_guard lock(entry.owner->mutex);
    const Property& held =
        entry.owner->propertyOf(entry.path, entry.name, property);
    if (const auto* text = std::get_if<std::string>(&held.value))
    {
        return sd_bus_message_append(reply, "s", text->c_str());
    }
    return sd_bus_message_append(reply, "u", std::get<uint32_t>(held.value));
}

int BusResponder::onSet(sd_bus*, const char*, const char*, const char* property,
                        sd_bus_message* value, void* userdata, sd_bus_error*)
{
    auto& entry = *static_cast<Interface*>(userdata);
    std::lock_guard lock(entry.owner->mutex);
    Property& target =
        entry.owner->propertyOf(entry.path, entry.name, property);
    // The library has already checked the variant against the signature.
    union
    {
        const char* text;
        uint32_t number;
    } in{};
    int r = sd_bus_message_read_basic(value, target.signature[0], &in);
    if (r < 0)
    {
        return r;
    }
    if (target.value.index() == 0)
    {
        target.value = std::string(in.text != nullptr ? in.text : "");
    }
    else
    {
        target.value = in.number;
    }
    target.written.push_back(target.value);
    return 1;
}

} // namespace orvane::test
