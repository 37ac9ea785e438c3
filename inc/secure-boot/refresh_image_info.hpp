#pragma once

#include "erotlib/wire_structs.hpp"

#include <vector>

namespace orvane
{

class SecureBootService;

// Re-reads the eRoT's component info, publishes every active component and
// raises the revocation state events. Halts when the read fails; returns
// the records it read.
std::vector<erot::ComponentInfo> RefreshImageInfo(SecureBootService& service);

} // namespace orvane
