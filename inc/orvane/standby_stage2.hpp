#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <cstdint>

namespace orvane
{

// FPGA configuration from `side`, then the k517 retimer rails.
uint32_t Stby_Pwr_on_Sqnc_2_PreRetimer(OrvaneSvcState& state, int side);
// Retimer and OAM standby rails, resets, products, SGPIO.
uint32_t Stby_Pwr_on_Sqnc_2(OrvaneSvcState& state);
uint32_t CycleOamRail(OrvaneSvcState& state);
uint32_t VrPowerOnForUpdate(OrvaneSvcState& state);

} // namespace orvane
