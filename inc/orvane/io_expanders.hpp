#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <cstdint>

namespace orvane
{

// Drives link configuration and module ID for the OAMs in `presentMask`.
uint32_t ConfigureIoExpanders(OrvaneSvcState& state, uint8_t presentMask);

} // namespace orvane
