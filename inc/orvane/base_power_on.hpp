#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <cstdint>
#include <string>

namespace orvane
{

// Waits for the host's enable and brings base power up to sequenceEvent 19.
uint32_t Base_Pwr_on_Sqnc(OrvaneSvcState& state);

// Steps that base power-off shares; not part of the power control
// interface.
namespace detail
{

// One single-attempt read of one register byte.
bool ReadRegister(int channel, uint8_t address, uint8_t reg, uint8_t& value);

// Writes `value` to the eight retimer reset registers 0x91 to 0x98 of the
// UBB FPGA, each with the label `label` and its number; raises `failure`
// and the register for the first that fails and stops there.
bool WriteRetimerResets(uint8_t value, const std::string& label,
                        const std::string& failure);

} // namespace detail

} // namespace orvane
