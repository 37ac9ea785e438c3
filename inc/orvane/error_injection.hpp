#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <cstdint>

namespace orvane
{

// Enables (bit 0 clear) or disables (bit 0 set) error injection on every
// RM; updates oamErrorInjection.
bool SetOamErrorInjection(OrvaneSvcState& state, bool enable);

// The OAM error injection byte (0x56, register 0xF2 0x4E) of one RM bus.
bool ReadOamErrorInjection(int* event, int bus, uint8_t& value);

} // namespace orvane
