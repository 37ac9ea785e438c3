#pragma once

#include <sys/types.h>

#include <string>

namespace ubbsim
{

// A private system bus for one run: any process may own any name on it.
class BusDaemon
{
  public:
    // Writes the configuration into `directory` and starts dbus-daemon.
    // Throws std::runtime_error when it doesn't come up.
    explicit BusDaemon(const std::string& directory);
    ~BusDaemon();
    BusDaemon(const BusDaemon&) = delete;
    BusDaemon& operator=(const BusDaemon&) = delete;

    // "unix:path=...", for DBUS_SYSTEM_BUS_ADDRESS.
    const std::string& address() const
    {
        return busAddress;
    }

  private:
    pid_t pid = -1;
    std::string busAddress;
};

} // namespace ubbsim
