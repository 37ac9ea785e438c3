#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <cstdint>

namespace orvane
{

// FPGA rails on, then the hot-swap SOA limits and sense values on boards
// whose design needs them.
uint32_t Stby_Pwr_on_FpgaRail(OrvaneSvcState& state);

} // namespace orvane
