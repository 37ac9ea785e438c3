#pragma once

#include "common/sim_clock.hpp"

namespace ubbsim
{

// From here on, board time stands still while the daemon waits for the
// answer to a D-Bus method call of its own, and each call costs what a
// method call costs on the SMC. orvane-virtual is linked so that the
// daemon's sd_bus_call comes here first.
void chargeBusCalls(const SimClock& clock);

} // namespace ubbsim
