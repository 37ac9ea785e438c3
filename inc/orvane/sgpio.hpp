#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <cstdint>

namespace orvane
{

// 1 when no fault bit is set, 0 otherwise.
int ReadUbbFpgaSgpio(OrvaneSvcState& state);
// 0 no fault, 1 a fault was cleared, 2 clearing failed, -1 read failed.
int ReadSmcFpgaSgpio();
void InitSmcFpgaSgpio();
void InitUbbFpgaSgpio();

// Nonzero when no RM reports an eFuse fault.
uint32_t CheckRmEfuseFault(OrvaneSvcState& state);

} // namespace orvane
