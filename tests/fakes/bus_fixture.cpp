#include "fakes/bus_fixture.hpp"

#include "run/bus_daemon.hpp"

#include <chrono>
#include <cstdlib>

namespace orvane::test
{

constexpr const char* addressVariable = "DBUS_SYSTEM_BUS_ADDRESS";

size_t openFileDescriptors()
{
    return static_cast<size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                      std::filesystem::directory_iterator()));
}

PrivateBus::PrivateBus() :
    daemon(std::make_unique<ubbsim::BusDaemon>(dir.root().string()))
{
    if (const char* previous = std::getenv(addressVariable))
    {
        previousAddress = previous;
    }
    setenv(addressVariable, daemon->address().c_str(), 1);
    // The socket is there from bind(), a moment before the daemon listens.
    for (int tries = 1;; ++tries)
    {
        try
        {
            (void)sdbus::createSystemBusConnection();
            return;
        }
        catch (const sdbus::Error&)
        {
            if (tries == 1000)
            {
                throw;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
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
}

void PrivateBus::kill()
{
    daemon.reset();
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
