#pragma once

#include "orvane/orvane_svc_state.hpp"

namespace orvane
{

// Compares each present OAM's DAC with its product's value and corrects it.
bool CheckDacConfig(OrvaneSvcState& state);

} // namespace orvane
