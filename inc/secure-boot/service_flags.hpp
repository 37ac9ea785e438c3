#pragma once

namespace orvane
{

class SecureBootService;

// The flag files, each read with a fresh open when it is needed.
// Whether the VR update is on, set on both VR services; false when it
// can't be told.
bool readVrUpdateEnable(SecureBootService& service);
bool readManualRetimerUpdate();
void writeManualRetimerUpdate(bool enable);

} // namespace orvane
