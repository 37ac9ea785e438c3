#pragma once

#include "utils/platform/gpio.hpp"

#include <memory>

namespace orvane::platform
{

// Lines of the kernel's GPIO character devices, found by name.
std::unique_ptr<Gpio> makeRealGpio();

} // namespace orvane::platform
