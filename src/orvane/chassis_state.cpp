#include "orvane/chassis_state.hpp"

#include "logging/log_line.hpp"
#include "utils/platform/platform.hpp"
#include "utils/sd_bus_call.hpp"

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

// One try on a connection of its own. Empty on success, otherwise why not.
std::string trySetPowerState(const char* powerState)
{
    SdBusCall call;
    int r = OpenMethodCall(call, chassisService, chassisPath,
                           "org.freedesktop.DBus.Properties", "Set");
    if (r >= 0)
    {
        r = AppendArguments(call, "ssv", chassisInterface, "CurrentPowerState",
                            "s", powerState);
    }
    if (r >= 0)
    {
        r = SendMethodCall(call);
    }
    return r < 0 ? DescribeFailure(call, r) : std::string();
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
