#pragma once

#include "utils/platform/clock.hpp"

#include <memory>

namespace orvane::platform
{

std::unique_ptr<Clock> makeRealClock();

// nanosleep that goes on with the remaining time when a signal breaks it.
void sleepResuming(std::chrono::nanoseconds duration);

} // namespace orvane::platform
