#pragma once

namespace orvane
{

class SecureBootService;

// Whether a run of the daemon earlier in this power cycle finished secure
// boot: the persist record reads good and says so. Leaves the read in the
// service's working copy.
bool secureBootFinished(SecureBootService& service);

// The boot when secure boot has already finished: no verification and no
// word to the eRoT, only the VR updates and the success report.
void runSkipPath(SecureBootService& service);

} // namespace orvane
