#pragma once

namespace orvane
{

class SecureBootService;

// The OAM regulator update with the UBB hotswaps around it; opens the gate
// that RM waits at, except when a power step failed.
bool BringUpVr(SecureBootService& service);

} // namespace orvane
