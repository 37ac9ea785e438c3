#pragma once

#include "utils/platform/zellib.hpp"

#include <memory>

namespace orvane::platform
{

// The closed library when libzellib.so.0 and all five of its calls are
// there; the journal fallback otherwise.
std::unique_ptr<Zellib> loadZellib();

} // namespace orvane::platform
