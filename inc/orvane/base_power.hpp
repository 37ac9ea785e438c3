#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <cstdint>
#include <functional>

namespace orvane
{

// Waits for the host's enable and brings base power up to sequenceEvent 19.
uint32_t Base_Pwr_on_Sqnc(OrvaneSvcState& state);

// Enables (bit 0 clear) or disables (bit 0 set) error injection on every
// RM; updates oamErrorInjection.
bool SetOamErrorInjection(OrvaneSvcState& state, bool enable);

// The eRoT's manageability call: result 0 or a negated errno, the device's
// status byte in `status`. Replaceable until the eRoT client is built in.
using ManageabilityCall =
    std::function<int(uint8_t feature, uint8_t value, uint8_t& status)>;
void SetManageabilityCall(ManageabilityCall call);
int ErotSetManageabilityFeature(uint8_t feature, uint8_t value,
                                uint8_t& status);

// Holds while the board runs (event 19) and takes down what sequenceEvent
// says was reached.
uint32_t Base_Pwr_off_Sqnc(OrvaneSvcState& state);
uint32_t Stby_Pwr_off_Sqnc(OrvaneSvcState& state);
bool DisableUbbHotswaps(OrvaneSvcState& state);

} // namespace orvane
