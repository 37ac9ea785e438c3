#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <cstdint>
#include <string>

// Steps of base power and of the monitor that live in files of their own;
// not part of the power control interface.
namespace orvane::detail
{

// One single-attempt read of one register byte.
bool ReadRegister(int channel, uint8_t address, uint8_t reg, uint8_t& value);

// CLEAR_FAULTS to the UBB's regulators, then to those of every OAM whose
// bit in `prsnt` is clear (a clear bit means present).
void ClearVrFaults(uint8_t prsnt);

// Writes `value` to the eight retimer reset registers 0x91 to 0x98 of the
// UBB FPGA, each with the label `label` and its number; raises `failure`
// and the register for the first that fails and stops there.
bool WriteRetimerResets(uint8_t value, const std::string& label,
                        const std::string& failure);

// One round of the power monitor, after its pause.
void PowerMonitorRound(OrvaneSvcState& state);

} // namespace orvane::detail
