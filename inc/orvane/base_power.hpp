#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <cstdint>

namespace orvane
{

// Waits for the host's enable and brings base power up to sequenceEvent 19.
uint32_t Base_Pwr_on_Sqnc(OrvaneSvcState& state);

// Enables (bit 0 clear) or disables (bit 0 set) error injection on every
// RM; updates oamErrorInjection.
bool SetOamErrorInjection(OrvaneSvcState& state, bool enable);

// Holds while the board runs (event 19) and takes down what sequenceEvent
// says was reached.
uint32_t Base_Pwr_off_Sqnc(OrvaneSvcState& state);
uint32_t Stby_Pwr_off_Sqnc(OrvaneSvcState& state);
bool DisableUbbHotswaps(OrvaneSvcState& state);

} // namespace orvane
