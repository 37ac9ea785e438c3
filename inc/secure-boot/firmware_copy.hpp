#pragma once

namespace orvane
{

class SecureBootService;

// Makes the inactive side equal to the active one, component by component,
// copying only what differs; false at the first step that fails.
bool copyActiveToInactive(SecureBootService& service);

} // namespace orvane
