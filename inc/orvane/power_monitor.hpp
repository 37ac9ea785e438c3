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

// 1 when no fault bit is set, 0 otherwise.
int ReadUbbFpgaSgpio(OrvaneSvcState& state);
// 0 no fault, 1 a fault was cleared, 2 clearing failed, -1 read failed.
int ReadSmcFpgaSgpio();
void InitSmcFpgaSgpio();
void InitUbbFpgaSgpio();

// Nonzero when no RM reports an eFuse fault.
uint32_t CheckRmEfuseFault(OrvaneSvcState& state);

} // namespace orvane
