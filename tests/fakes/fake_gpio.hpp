#pragma once

#include "utils/platform/gpio.hpp"

namespace orvane::test
{

// Placeholder until the line fake lands.
class FakeGpio : public platform::Gpio
{};

} // namespace orvane::test
