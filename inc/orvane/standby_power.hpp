#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <cstdint>

namespace orvane
{

// Stages 1 and 3 of standby power. Results are nonzero for success.
uint32_t Stby_Pwr_on_Sqnc_1(OrvaneSvcState& state);
uint32_t OrvaneSvcStartUp(OrvaneSvcState& state);
uint32_t Stby_Pwr_on_Sqnc_3(OrvaneSvcState& state);

} // namespace orvane
