#pragma once

#include "utils/platform/retimer_lib.hpp"

#include <memory>

namespace orvane::platform
{

// The closed retimer library when it is installed, else a stand-in that
// cannot read a device and so never claims a match.
std::unique_ptr<RetimerLib> makeRealRetimerLib();

} // namespace orvane::platform
