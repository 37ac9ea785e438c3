#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <optional>
#include <string>

namespace orvane
{

// A system bus connection for one operation of the VR update. Each
// operation opens its own rather than keeping the process's default one:
// a connection kept from a bus that went away would fail every later call.
struct VrBus
{
    VrBus() = default;
    VrBus(const VrBus&) = delete;
    VrBus& operator=(const VrBus&) = delete;
    ~VrBus()
    {
        sd_bus_flush_close_unref(bus);
    }

    // Up to `attempts` tries; the failure is logged.
    bool open(int attempts = 1);

    sd_bus* bus = nullptr;
};

// A call that answers one boolean: the answer, or that the peer answered
// with an error, or why the call couldn't be made.
struct BoolReply
{
    std::optional<bool> answer;
    bool errorReply = false;
    std::string failure;
};

// A method with one "u" argument.
BoolReply CallBoolMethod(const char* service, const char* path,
                         const char* interface, const char* member,
                         uint32_t argument);
BoolReply ReadBoolProperty(const char* service, const char* path,
                           const char* interface, const char* name);

} // namespace orvane
