#pragma once

namespace orvane
{

class SecureBootService;

// Re-reads the eRoT's component info, publishes every active component and
// raises the revocation state events. Halts when the read fails.
void RefreshImageInfo(SecureBootService& service);

} // namespace orvane
