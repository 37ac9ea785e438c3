#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <cstdint>
#include <string>

namespace orvane
{

constexpr const char* orvaneBusName = "xyz.openbmc_project.Orvane";
constexpr const char* powerStatusPath = "/xyz/openbmc_project/Orvane";
constexpr const char* powerStatusInterface =
    "xyz.openbmc_project.Orvane.Power_Status";
constexpr const char* vrInfoPath = "/xyz/openbmc_project/Orvane/VR_Info";
constexpr const char* vrInfoInterface = "xyz.openbmc_project.Orvane.VR_Info";

// The D-Bus thread: claims the name, publishes Power_Status and the nine
// VR_Info trees, registers the secure image information and status, sets
// dbusReady and serves the bus for ever.
void RunDbusService(OrvaneSvcState& state);
// Starts RunDbusService on a detached thread of its own. The name claim
// counts as pending from here, not from when the thread first runs, so a
// slow thread start can't let standby touch the board first.
void StartDbusService(OrvaneSvcState& state);

// Set once the objects are published; never cleared.
bool DbusReady();
// True while the D-Bus thread waits for the bus name. A name that another
// instance holds ends the process, so nothing may touch the board before
// this is false.
bool DbusNameClaimPending();

// Publishes one Power_Status property through the bus (nonzero is true);
// BasePowerStatus also goes to the chassis state.
void set_property(const std::string& name, uint32_t value);

// VR_CONFIG_DIR of VR_Info.<name> ("UBB", "OAM_3").
std::string GetVrConfigDir(const std::string& name);

} // namespace orvane
