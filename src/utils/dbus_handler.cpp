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

// Opens the connection and builds a Properties call to the daemon's service.
int prepare(SdBusCall& call, const std::string& path, const char* member)
{
    return OpenMethodCall(call, orvaneService, path.c_str(),
                          propertiesInterface, member);
}

std::string trySet(const std::string& path, const std::string& interface,
                   const std::string& property, const std::string& value)
{
    SdBusCall call;
    int r = prepare(call, path, "Set");
    if (r >= 0)
    {
        r = AppendArguments(call, "ssv", interface.c_str(), property.c_str(),
                            "s", value.c_str());
    }
    if (r >= 0)
    {
        r = SendMethodCall(call);
    }
    return r < 0 ? DescribeFailure(call, r) : std::string();
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
    SetBusPropertyAt(orvaneObject, interface, property, value);
}

void SetBusPropertyAt(const std::string& path, const std::string& interface,
                      const std::string& property, const std::string& value)
{
    // The caller goes on whatever happens: the line is all that is left.
    if (!trySet(path, interface, property, value).empty())
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
    int r = prepare(call, path, "Get");
    if (r >= 0)
    {
        r = AppendArguments(call, "ss", interface.c_str(), property.c_str());
    }
    if (r >= 0)
    {
        r = SendMethodCall(call);
    }
    if (r < 0)
    {
        logGetFailure(property, DescribeFailure(call, r));
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
        call.step("sd_bus_message_peek_type", -1);
        logGetFailure(property, DescribeFailure(call, r < 0 ? r : -ENXIO));
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
        call.step("sd_bus_message_read", r);
        logGetFailure(property, DescribeFailure(call, r));
        return {};
    }
    return text;
}

} // namespace orvane
