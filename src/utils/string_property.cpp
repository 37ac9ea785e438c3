#include "utils/string_property.hpp"

#include "logging/log_line.hpp"

#include <sdbus-c++/sdbus-c++.h>

#include <memory>

namespace orvane
{

bool AddStringProperty(sdbus::IObject& object, const std::string& interface,
                       const std::string& name, const std::string& initial)
{
    auto value = std::make_shared<std::string>(initial);
    try
    {
        object.registerProperty(name)
            .onInterface(interface)
            .withGetter([value]() { return *value; })
            .withSetter(
                [value, &object, interface, name](const std::string& next) {
                    if (next != *value)
                    {
                        *value = next;
                        object.emitPropertiesChangedSignal(interface, {name});
                    }
                });
    }
    catch (const sdbus::Error&)
    {
        return false;
    }
    return true;
}

bool FinishInterface(sdbus::IObject& object, const std::string& interface)
{
    try
    {
        object.finishRegistration();
    }
    catch (const sdbus::Error&)
    {
        ConsoleLog(logging::level::ERR)
            << "Dbus interface " << interface << " register property fail.";
        return false;
    }
    return true;
}

} // namespace orvane
