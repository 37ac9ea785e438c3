#pragma once

#include "orvane/orvane_svc_state.hpp"

namespace orvane
{

bool CheckMixedProducts();
void WriteOamPresence(OrvaneSvcState& state);
void DetectPhysicalMissing(OrvaneSvcState& state);

} // namespace orvane
