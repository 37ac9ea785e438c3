#pragma once

#include <sdbus-c++/IConnection.h>

#include <string>

namespace orvane
{

class DBusHandler
{
  public:
    DBusHandler() = delete;

    // The one shared system bus connection of the process.
    static sdbus::IConnection& getBus();
};

// Sets a property of the daemon's own object through the bus; the value
// always travels as a string. Failures are logged, never thrown.
void SetBusProperty(const std::string& interface, const std::string& property,
                    const std::string& value);

// The same on another object of the daemon.
void SetBusPropertyAt(const std::string& path, const std::string& interface,
                      const std::string& property, const std::string& value);

// A string property of one of the daemon's objects; empty on failure.
std::string GetBusProperty(const std::string& path,
                           const std::string& interface,
                           const std::string& property);

} // namespace orvane
