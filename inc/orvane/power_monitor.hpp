#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <cstdint>
#include <span>

namespace orvane
{

// One watched signal.
struct MonitorEntry
{
    uint32_t event;
    uint8_t goodMask;
    uint8_t goodRegister;
    uint16_t address;
    uint32_t channel;
};

// The monitor thread: never returns.
void PowerMonitor(OrvaneSvcState& state);
bool PWRMON_PwrGd_Chk(OrvaneSvcState& state,
                      std::span<const MonitorEntry> list);
void PWRMON_errorHandle(OrvaneSvcState& state);

namespace detail
{
// One round of the monitor, after its pause.
void PowerMonitorRound(OrvaneSvcState& state);
} // namespace detail

} // namespace orvane
