#include "logging/log_line.hpp"
#include "orvane/power_service.hpp"
#include "utils/platform/platform.hpp"
#include "utils/sd_bus_call.hpp"

#include <systemd/sd-bus.h>

#include <string>

namespace orvane
{

namespace
{

using logging::level::ERR;
using logging::level::INFO;

constexpr const char* chassisService = "xyz.openbmc_project.State.Chassis";
constexpr const char* chassisPath = "/xyz/openbmc_project/state/chassis0";
constexpr const char* chassisInterface = "xyz.openbmc_project.State.Chassis";

// The state manager may still be starting: it gets eleven tries, 3 s apart.
constexpr int chassisTries = 11;
constexpr unsigned chassisRetrySeconds = 3;

// "<call>: <error name>: <error message>".
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

// One try on a connection of its own. Empty on success, otherwise why not.
std::string trySetPowerState(const char* powerState)
{
    SdBusCall call;
    int r = sd_bus_open_system(&call.bus);
    if (r < 0)
    {
        return describe("sd_bus_open_system", r, call.error);
    }
    r = sd_bus_message_new_method_call(
        call.bus, &call.message, chassisService, chassisPath,
        "org.freedesktop.DBus.Properties", "Set");
    if (r < 0)
    {
        return describe("sd_bus_message_new_method_call", r, call.error);
    }
    r = sd_bus_message_append(call.message, "ssv", chassisInterface,
                              "CurrentPowerState", "s", powerState);
    if (r < 0)
    {
        return describe("sd_bus_message_append", r, call.error);
    }
    r = sd_bus_call(call.bus, call.message, 0, &call.error, &call.reply);
    if (r < 0)
    {
        return describe("sd_bus_call", r, call.error);
    }
    return {};
}

} // namespace

void SetChassisCurrentPowerState(bool isOn)
{
    const char* powerState =
        isOn ? "xyz.openbmc_project.State.Chassis.PowerState.On"
             : "xyz.openbmc_project.State.Chassis.PowerState.Off";
    for (int tries = 1;; ++tries)
    {
        const std::string failure = trySetPowerState(powerState);
        if (failure.empty())
        {
            ConsoleLog(INFO) << "The current Chassis Power state set to: "
                             << (isOn ? "On" : "Off");
            return;
        }
        if (tries >= chassisTries)
        {
            ConsoleLog(ERR)
                << "SetChassisCurrentPowerState D-Bus error: " << failure
                << "\n";
            return;
        }
        ConsoleLog(INFO) << "SetChassisCurrentPowerState D-Bus failed: "
                         << failure << ". Starting retry#" << tries;
        platform::sleepSeconds(chassisRetrySeconds);
    }
}

} // namespace orvane
