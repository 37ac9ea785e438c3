#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <cstdint>

namespace orvane
{

// The three stages of standby power and their helpers. Results are nonzero
// for success.
uint32_t Stby_Pwr_on_Sqnc_1(OrvaneSvcState& state);
uint32_t OrvaneSvcStartUp(OrvaneSvcState& state);
// Nonzero after a warm SMC reset with every present OAM still good.
uint32_t CheckWarmBootPowerGood(OrvaneSvcState& state);
// The SoC's reset reason register.
uint32_t ReadResetReason();
// FPGA configuration from `side`, then the k517 retimer rails.
uint32_t Stby_Pwr_on_Sqnc_2_PreRetimer(OrvaneSvcState& state, int side);
// Retimer and OAM standby rails, resets, products, SGPIO.
uint32_t Stby_Pwr_on_Sqnc_2(OrvaneSvcState& state);
uint32_t CycleOamRail(OrvaneSvcState& state);
uint32_t VrPowerOnForUpdate(OrvaneSvcState& state);
uint32_t Stby_Pwr_on_Sqnc_3(OrvaneSvcState& state);

} // namespace orvane
