#pragma once

#include <string>

namespace sdbus
{
class IObject;
}

namespace orvane
{

// A writable string property that announces its changes. The daemon writes
// its own properties through the bus, so they take a setter; the value
// lives in the callbacks, which run on the event loop's thread only. False
// when the bus library refuses it (a name used twice on the interface).
bool AddStringProperty(sdbus::IObject& object, const std::string& interface,
                       const std::string& name, const std::string& initial);

// Puts the interface on the bus. One that can't go live costs only itself:
// "Dbus interface <interface> register property fail." and false.
bool FinishInterface(sdbus::IObject& object, const std::string& interface);

} // namespace orvane
