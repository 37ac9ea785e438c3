#pragma once

#include "utils/platform/i2c_dev.hpp"

namespace orvane::test
{

// Placeholder until the register-map fake lands.
class FakeI2c : public platform::I2cDev
{};

} // namespace orvane::test
