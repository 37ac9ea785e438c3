#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <cstdint>

namespace orvane
{

// Nonzero after a warm SMC reset with every present OAM still good.
uint32_t CheckWarmBootPowerGood(OrvaneSvcState& state);
// The SoC's reset reason register.
uint32_t ReadResetReason();

} // namespace orvane
