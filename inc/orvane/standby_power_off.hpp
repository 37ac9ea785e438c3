#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <cstdint>

namespace orvane
{

// Takes standby power down from the stage the board is in.
uint32_t Stby_Pwr_off_Sqnc(OrvaneSvcState& state);
bool DisableUbbHotswaps(OrvaneSvcState& state);

} // namespace orvane
