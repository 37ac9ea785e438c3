#pragma once

namespace orvane
{

// CurrentPowerState of the chassis, with up to eleven tries 3 s apart.
void SetChassisCurrentPowerState(bool isOn);

} // namespace orvane
