#pragma once

#include "neighbours/call_log.hpp"
#include "scenario/scenario.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ubbsim
{

// The OpenBMC services that the daemon talks to, served on the system bus
// (DBUS_SYSTEM_BUS_ADDRESS) as the scenario's board would have them:
//   xyz.openbmc_project.FruDevice           FRU EEPROM contents
//   xyz.openbmc_project.ObjectMapper        GetSubTree over the objects here
//   xyz.openbmc_project.State.Chassis       CurrentPowerState
//   xyz.openbmc_project.Software.BMC.Updater  SMCUpdateOnGoing
//   xyz.openbmc_project.rm                  the RM service's methods
//   xyz.openbmc_project.MCTP.SMBus15        MctpSendRecv to the eRoT, when
//                                           a handler is given
// Each has a connection and a thread of its own.
class Neighbours
{
  public:
    // The eRoT behind the MCTP endpoint, given the call's SMBus address,
    // endpoint id, time-out and request frame: the reply frame, an empty
    // frame for a reply that never came, or none when nothing answers
    // (the call then fails with an I/O error).
    using MctpHandler = std::function<std::optional<std::vector<uint8_t>>(
        uint8_t address, uint8_t eid, uint16_t timeoutMs,
        const std::vector<uint8_t>& request)>;

    explicit Neighbours(const Scenario& scenario, MctpHandler mctp = {});
    ~Neighbours();
    Neighbours(const Neighbours&) = delete;
    Neighbours& operator=(const Neighbours&) = delete;

    // Where the RM service learns what an OAM's RM holds once it was
    // programmed; before that, and without it, the scenario's digest.
    using RmDigestSource =
        std::function<std::optional<std::array<uint8_t, 32>>(int oam)>;
    void setRmDigestSource(RmDigestSource source);

    // Connects, registers every object, then takes the names, so that a
    // name that can be seen is ready to answer. Throws sdbus::Error when
    // the bus can't be reached or a name is taken.
    void start();
    // Lets the names go and ends the threads; also done by the destructor.
    void stop();

    // Every method call and property write so far, in order of arrival.
    std::vector<BusCall> calls() const;
    size_t callCount(const std::string& member) const;

    std::string chassisPowerState() const;
    bool smcUpdateOnGoing() const;

    // Why event loops ended early (the bus went away), one line each.
    std::vector<std::string> errors() const;

  private:
    struct Impl;
    std::unique_ptr<Impl> impl;
};

} // namespace ubbsim
