#pragma once

#include "fakes/fake_platform.hpp"

#include <sdbus-c++/sdbus-c++.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

namespace ubbsim
{
class BusDaemon;
}

namespace orvane::test
{

// A dbus-daemon of the test's own, which the process reaches as its system
// bus (DBUS_SYSTEM_BUS_ADDRESS) while the object lives. The daemon and its
// directory go away with the object; the daemon also ends if the creating
// thread dies first. Throws std::runtime_error when it cannot start.
class PrivateBus
{
  public:
    PrivateBus();
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    // Ends the daemon under its clients' feet.
    void kill();

  private:
    TempFileRoot dir;
    std::unique_ptr<ubbsim::BusDaemon> daemon;
    std::optional<std::string> previousAddress;
};

// The value of a property the responder serves, of D-Bus type "s" or "u".
using BusValue = std::variant<std::string, uint32_t>;

// A peer on the system bus that owns one name and answers with handlers the
// test gives. Objects and methods are added before start(); handlers run on
// the responder's own thread with its mutex held, so a test reads what they
// captured under hold().
class BusResponder
{
  public:
    // Fills the reply; a negative errno answers with that error instead.
    using Method =
        std::function<int(sdbus::MethodCall& call, sdbus::MethodReply& reply)>;

    explicit BusResponder(std::string busName);
    ~BusResponder();
    BusResponder(const BusResponder&) = delete;
    BusResponder& operator=(const BusResponder&) = delete;

    void addMethod(const std::string& path, const std::string& interface,
                   const std::string& member, const std::string& signature,
                   const std::string& result, Method handler);
    // A property that can be read and written through
    // org.freedesktop.DBus.Properties.
    void addProperty(const std::string& path, const std::string& interface,
                     const std::string& name, BusValue initial);

    // Connects, takes the name, registers the objects and starts serving.
    void start();
    // Ends serving and lets the name go; also done by the destructor.
    void stop();

    std::unique_lock<std::mutex> hold();
    BusValue property(const std::string& path, const std::string& interface,
                      const std::string& name);
    // Values written to one property, in order.
    std::vector<BusValue> writes(const std::string& path,
                                 const std::string& interface,
                                 const std::string& name);
    // Method calls answered so far, by member name.
    int calls(const std::string& member);

  private:
    struct Property
    {
        BusValue value;
        std::vector<BusValue> written;
    };
    using Key = std::tuple<std::string, std::string, std::string>;

    std::string busName;
    // What start() registers, by object path.
    std::map<std::string, std::vector<std::function<void(sdbus::IObject&)>>>
        registrations;
    std::map<Key, Property> properties;
    std::map<std::string, int> callCounts;
    std::mutex mutex;
    std::unique_ptr<sdbus::IConnection> connection;
    std::vector<std::unique_ptr<sdbus::IObject>> objects;
    std::thread worker;
};

// Polls until the condition holds, for what the event loop does on its own
// thread; false after ten seconds.
template <typename Condition>
bool eventually(Condition condition)
{
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition())
    {
        if (std::chrono::steady_clock::now() > deadline)
        {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

// Descriptors the process holds open now, for tests of what calls give
// back.
size_t openFileDescriptors();

// A test with every seam faked and a private system bus of its own.
class BusTest : public ::testing::Test
{
  protected:
    FakePlatform platform;
    PrivateBus bus;
};

} // namespace orvane::test
