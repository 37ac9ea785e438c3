#include "orvane/power_service.hpp"

#include "logging/log_line.hpp"
#include "orvane/chassis_state.hpp"
#include "secure-boot/secure_boot_status.hpp"
#include "utils/dbus_handler.hpp"

#include <sdbus-c++/sdbus-c++.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <exception>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::ERR;

constexpr int vrCount = 12;

// One Power_Status property: its texts and the state field it mirrors.
struct StatusProperty
{
    const char* name;
    const char* whenTrue;
    const char* whenFalse;
    std::atomic<bool> OrvaneSvcState::*field;
    // What a failed registration names. The repeated names are kept as
    // these lines have always read.
    const char* failureName;
};

constexpr std::array<StatusProperty, 6> statusProperties{{
    {"StandbyPowerStatus", "On", "Off", &OrvaneSvcState::standbyPowerStatus,
     " StandbyPowerStatus fail."},
    {"BasePowerStatus", "On", "Off", &OrvaneSvcState::basePowerStatus,
     " BasePowerStatus fail."},
    {"OAMErrorInjection", "Enable", "Disable",
     &OrvaneSvcState::oamErrorInjection, " BasePowerStatus fail."},
    {"UBBFPGAStatus", "True", "False", &OrvaneSvcState::ubbFpgaStatus,
     " BasePowerStatus fail."},
    {"SMCFPGAStatus", "True", "False", &OrvaneSvcState::smcFpgaStatus,
     " BasePowerStatus fail."},
    {"ServerResetStatus", "True", "False", &OrvaneSvcState::serverResetStatus,
     " Server_Reset_Status fail."},
}};

constexpr std::array<const char*, 5> vrSummaryProperties{
    "HW_DESIGN", "VR_CONFIG_DIR", "VR_CONFIG_VERSION", "THERMAL_INFO",
    "PART_NUMBER"};
constexpr std::array<const char*, 4> vrDetailProperties{
    "Name", "Model", "VRSlaveAddr", "Writecycles"};

std::atomic<bool> dbusReady{false};
std::atomic<bool> claimPending{false};

// Everything the D-Bus thread publishes. The values are read and written
// only by that thread's event loop, so they need no lock.
struct Published
{
    std::vector<std::unique_ptr<sdbus::IObject>> objects;
    std::list<std::string> values; // stable addresses for the callbacks

    // One object per interface, so that each goes live once complete.
    sdbus::IObject& add(sdbus::IConnection& connection, const char* path)
    {
        return *objects.emplace_back(sdbus::createObject(connection, path));
    }
};

// A writable string property that announces its changes.
void addString(Published& published, sdbus::IObject& object,
               const std::string& interface, const std::string& name,
               std::string initial)
{
    std::string& value = published.values.emplace_back(std::move(initial));
    object.registerProperty(name)
        .onInterface(interface)
        .withGetter([&value]() { return value; })
        .withSetter(
            [&value, &object, interface, name](const std::string& next) {
                if (next != value)
                {
                    value = next;
                    object.emitPropertiesChangedSignal(interface, {name});
                }
            });
}

// False when a property could not be registered; the line is written.
bool publishPowerStatus(Published& published, sdbus::IConnection& connection,
                        const OrvaneSvcState& state)
{
    sdbus::IObject& object = published.add(connection, powerStatusPath);
    for (const StatusProperty& property : statusProperties)
    {
        const bool on = (state.*property.field).load();
        try
        {
            addString(published, object, powerStatusInterface, property.name,
                      on ? property.whenTrue : property.whenFalse);
        }
        catch (const sdbus::Error&)
        {
            ConsoleLog(ERR) << "Dbus interface " << powerStatusInterface
                            << " register property " << property.failureName;
            return false;
        }
    }
    object.finishRegistration();
    return true;
}

void addEmptyString(Published& published, sdbus::IObject& object,
                    const std::string& interface, const std::string& name,
                    const std::string& failure)
{
    try
    {
        addString(published, object, interface, name, "");
    }
    catch (const sdbus::Error&)
    {
        ConsoleLog(ERR) << "Dbus interface " << interface << failure;
    }
}

// A VR interface that can't go live costs only itself: the line, and the
// others are published all the same.
void finishVrInterface(sdbus::IObject& object, const std::string& interface)
{
    try
    {
        object.finishRegistration();
    }
    catch (const sdbus::Error&)
    {
        ConsoleLog(ERR) << "Dbus interface "
                        << interface << " register property fail.";
    }
}

// VR_Info.<N> on the tree's root, then VR_Info.<N>.VR1 to VR12 below it.
void publishVrInfo(Published& published, sdbus::IConnection& connection,
                   const std::string& module)
{
    const std::string summary = std::string(vrInfoInterface) + "." + module;
    sdbus::IObject& root = published.add(connection, vrInfoPath);
    auto addSummary = [&](const std::string& name) {
        addEmptyString(published, root, summary, name,
                       " register property " + name + " fail.");
    };
    for (const char* name : vrSummaryProperties)
    {
        addSummary(name);
    }
    for (int vr = 1; vr <= vrCount; ++vr)
    {
        addSummary("VRSlaveAddr_" + std::to_string(vr));
        addSummary("Writecycles_" + std::to_string(vr));
    }
    finishVrInterface(root, summary);

    const std::string modulePath = std::string(vrInfoPath) + "/" + module;
    for (int vr = 1; vr <= vrCount; ++vr)
    {
        const std::string detail = summary + ".VR" + std::to_string(vr);
        sdbus::IObject& object = published.add(connection, modulePath.c_str());
        for (const char* name : vrDetailProperties)
        {
            addEmptyString(published, object, detail, name,
                           " register property fail.");
        }
        finishVrInterface(object, detail);
    }
}

// The secure boot interfaces on this connection. A failure is logged and
// left out; the power state stays published.
void runRegistrations(sdbus::IConnection& connection)
{
    try
    {
        RegisterSecureBootStatus(connection);
    }
    catch (const std::exception& e)
    {
        ConsoleLog(ERR) << "Dbus service registration fail: " << e.what();
    }
}

// The name is what makes this the one instance that drives the board. Held
// by another, or refused by the bus's policy, the process ends: the main
// thread is still waiting for the claim and hasn't touched a line or a
// register. _Exit, because that thread runs on and static destructors must
// not run under it.
std::unique_ptr<sdbus::IConnection> claimBus()
{
    auto connection = sdbus::createSystemBusConnection();
    try
    {
        connection->requestName(orvaneBusName);
    }
    catch (const sdbus::Error& e)
    {
        // Tells the person who installs the daemon which of the two to fix.
        bool refused = e.getName() == "org.freedesktop.DBus.Error.AccessDenied";
        ConsoleLog(CRITICAL)
            << "sd_bus_request_name: the bus name " << orvaneBusName
            << " is not ours, "
            << (refused ? "the bus's policy refuses it to this user"
                        : "another instance runs the board")
            << "; exiting: " << e.getName() << ": " << e.getMessage();
        std::_Exit(EXIT_FAILURE);
    }
    claimPending = false;
    return connection;
}

// What the D-Bus thread serves. Made once and never destroyed: interfaces
// that other parts register keep references to the connection, and the
// thread may still be serving while the process exits.
struct Service
{
    std::unique_ptr<sdbus::IConnection> connection;
    Published published;
};
Service* service = nullptr;

void serve(OrvaneSvcState& state)
{
    service = new Service{claimBus(), {}};
    sdbus::IConnection& connection = *service->connection;
    connection.addObjectManager("/", sdbus::floating_slot);

    Published& published = service->published;
    if (!publishPowerStatus(published, connection, state))
    {
        return;
    }
    for (int oam = 0; oam < 8; ++oam)
    {
        publishVrInfo(published, connection, "OAM_" + std::to_string(oam));
    }
    publishVrInfo(published, connection, "UBB");
    runRegistrations(connection);

    dbusReady = true;
    connection.enterEventLoop();
}

} // namespace

void RunDbusService(OrvaneSvcState& state)
{
    claimPending = true;
    // Whatever else stops the service ends this thread only: the power
    // sequences go on without the bus, and the process stays up.
    try
    {
        serve(state);
    }
    catch (const sdbus::Error& e)
    {
        ConsoleLog(ERR) << "Dbus service " << orvaneBusName
                        << " stopped: " << e.getMessage();
    }
    claimPending = false;
}

void StartDbusService(OrvaneSvcState& state)
{
    claimPending = true;
    std::thread(RunDbusService, std::ref(state)).detach();
}

bool DbusReady()
{
    return dbusReady;
}

bool DbusNameClaimPending()
{
    return claimPending;
}

void set_property(const std::string& name, uint32_t value)
{
    for (const StatusProperty& property : statusProperties)
    {
        if (name != property.name)
        {
            continue;
        }
        const bool on = value != 0;
        SetBusProperty(powerStatusInterface, name,
                       on ? property.whenTrue : property.whenFalse);
        if (name == "BasePowerStatus")
        {
            SetChassisCurrentPowerState(on);
        }
        return;
    }
    ConsoleLog(ERR) << "[set_property] Dbus property " << name
                    << " is unreachable in Dbus interface "
                    << powerStatusInterface;
}

std::string GetVrConfigDir(const std::string& name)
{
    return GetBusProperty(vrInfoPath, std::string(vrInfoInterface) + "." + name,
                          "VR_CONFIG_DIR");
}

} // namespace orvane
