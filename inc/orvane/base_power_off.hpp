#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <cstdint>

namespace orvane
{

// Holds while the board runs (event 19) and takes down what sequenceEvent
// says was reached.
uint32_t Base_Pwr_off_Sqnc(OrvaneSvcState& state);

} // namespace orvane
