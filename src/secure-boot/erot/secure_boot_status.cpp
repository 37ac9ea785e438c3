#include "secure-boot/secure_boot_status.hpp"

#include "orvane/power_service.hpp"
#include "utils/dbus_handler.hpp"

#include <sdbus-c++/sdbus-c++.h>

#include <memory>

namespace orvane
{

namespace
{

// Touched only by the D-Bus thread: registration and the property's
// callbacks run there.
struct StatusObject
{
    std::unique_ptr<sdbus::IObject> object;
    std::string value = "Unknown";
};

StatusObject& statusObject()
{
    static StatusObject published;
    return published;
}

} // namespace

void RegisterSecureBootStatus(sdbus::IConnection& connection)
{
    StatusObject& published = statusObject();
    published.object = sdbus::createObject(connection, powerStatusPath);
    published.value = "Unknown";
    sdbus::IObject& object = *published.object;
    object.registerProperty("Status")
        .onInterface(secureBootStatusInterface)
        .withGetter([&published]() { return published.value; })
        .withSetter([&published, &object](const std::string& next) {
            if (next != published.value)
            {
                published.value = next;
                object.emitPropertiesChangedSignal(secureBootStatusInterface,
                                                   {"Status"});
            }
        });
    object.finishRegistration();
}

void SetSecureBootStatus(const std::string& status)
{
    SetBusProperty(secureBootStatusInterface, "Status", status);
}

} // namespace orvane
