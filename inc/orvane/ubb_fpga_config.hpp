#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <cstdint>

namespace orvane
{

// Loads the UBB FPGA from flash `side` (0 A, 1 B), with one more attempt
// after an activation time-out. Sets ubbFpgaConfigured on success.
uint32_t ConfigureUbbFpga(OrvaneSvcState& state, int side);

} // namespace orvane
