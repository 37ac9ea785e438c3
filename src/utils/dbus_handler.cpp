#include "utils/dbus_handler.hpp"

#include "logging/log_line.hpp"
#include "utils/sd_bus_call.hpp"

#include <sdbus-c++/sdbus-c++.h>
#include <systemd/sd-bus.h>

#include <cerrno>
#include <memory>
#include <string>
#include <string_view>
#include <variant>

namespace orvane
{

namespace
{

using logging::level::ERR;

constexpr const char* orvaneService = "xyz.openbmc_project.Orvane";
constexpr const char* orvaneObject = "/xyz/openbmc_project/Orvane";
constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";

// "<call>: <error name>: <error message>", from the bus error when the peer
// sent one and from the errno otherwise.
std::string describe(const char* call, int result, sd_bus_error& error)
{
    if (!sd_bus_error_is_set(&error))
    {
        sd_bus_error_set_errno(&error, -result);
    }
    std::string text = call;
    text += ": ";
    text += error.name != nullptr ? error.name : "";
    text += ": ";
    text += error.message != nullptr ? error.message : "";
    return text;
}

// Opens the connection and builds a Properties call to the daemon's service.
// Empty on success, otherwise the description of the failing step.
std::string prepare(SdBusCall& call, const std::string& path,
                    const char* member)
{
    int r = sd_bus_open_system(&call.bus);
    if (r < 0)
    {
        return describe("sd_bus_open_system", r, call.error);
    }
    r = sd_bus_message_new_method_call(call.bus, &call.message, orvaneService,
                                       path.c_str(), propertiesInterface,
                                       member);
    if (r < 0)
    {
        return describe("sd_bus_message_new_method_call", r, call.error);
    }
    return {};
}

std::string trySet(const std::string& interface, const std::string& property,
                   const std::string& value)
{
    SdBusCall call;
    std::string failure = prepare(call, orvaneObject, "Set");
    if (!failure.empty())
    {
        return failure;
    }
    int r = sd_bus_message_append(call.message, "ssv", interface.c_str(),
                                  property.c_str(), "s", value.c_str());
    if (r < 0)
    {
        return describe("sd_bus_message_append", r, call.error);
    }
    r = sd_bus_call(call.bus, call.message, 0, &call.error, &call.reply);
    if (r < 0)
    {
        return describe("sd_bus_call noreply", r, call.error);
    }
    return {};
}

void logGetFailure(const std::string& property, const std::string& failure)
{
    ConsoleLog(ERR) << "failed to make a d-bus call get " << property
                    << " property fail, ERROR= " << failure;
}

} // namespace

sdbus::IConnection& DBusHandler::getBus()
{
    static std::unique_ptr<sdbus::IConnection> bus =
        sdbus::createSystemBusConnection();
    return *bus;
}

void SetBusProperty(const std::string& interface, const std::string& property,
                    const std::string& value)
{
    // The caller goes on whatever happens: the line is all that is left.
    if (!trySet(interface, property, value).empty())
    {
        ConsoleLog(ERR) << "Set Dbus property - " << property
                        << " is unreachable in Dbus interface " << interface;
    }
}

std::string GetBusProperty(const std::string& path,
                           const std::string& interface,
                           const std::string& property)
{
    SdBusCall call;
    std::string failure = prepare(call, path, "Get");
    if (!failure.empty())
    {
        logGetFailure(property, failure);
        return {};
    }
    int r = sd_bus_message_append(call.message, "ss", interface.c_str(),
                                  property.c_str());
    if (r < 0)
    {
        logGetFailure(property,
                      describe("sd_bus_message_append", r, call.error));
        return {};
    }
    r = sd_bus_call(call.bus, call.message, 0, &call.error, &call.reply);
    if (r < 0)
    {
        logGetFailure(property, describe("sd_bus_call", r, call.error));
        return {};
    }
    if (sd_bus_message_is_method_error(call.reply, nullptr) > 0)
    {
        ConsoleLog(ERR) << "method call error";
        return {};
    }

    char type = 0;
    const char* contents = nullptr;
    r = sd_bus_message_peek_type(call.reply, &type, &contents);
    if (r <= 0 || type != SD_BUS_TYPE_VARIANT)
    {
        logGetFailure(property, describe("sd_bus_message_peek_type",
                                         r < 0 ? r : -ENXIO, call.error));
        return {};
    }
    if (std::string_view(contents) != "s")
    {
        // Only string properties are read this way; anything else is a
        // mistake of the caller, reported as a wrong variant alternative.
        throw std::bad_variant_access();
    }
    const char* text = nullptr;
    r = sd_bus_message_read(call.reply, "v", "s", &text);
    if (r < 0)
    {
        logGetFailure(property, describe("sd_bus_message_read", r, call.error));
        return {};
    }
    return text;
}

} // namespace orvane
