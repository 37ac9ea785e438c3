#pragma once

#include "utils/platform/shell.hpp"

#include <memory>

namespace orvane::platform
{

std::unique_ptr<Shell> makeRealShell();

} // namespace orvane::platform
