#pragma once

#include "utils/platform/i2c_dev.hpp"

#include <memory>

namespace orvane::platform
{

// The i2c-dev character devices of the running kernel, with libi2c for the
// SMBus calls.
std::unique_ptr<I2cDev> makeRealI2cDev();

} // namespace orvane::platform
