#pragma once

#include "logging/zellib.hpp"

#include <memory>

namespace orvane::logging
{

// The closed library when libzellib.so.0 and all five of its calls are
// there; the journal fallback otherwise.
std::unique_ptr<Zellib> loadZellib();

} // namespace orvane::logging
