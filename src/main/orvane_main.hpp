#pragma once

#include "main/boot_ops.hpp"

namespace orvane
{

// The daemon's life after the platform seams are installed: never returns.
[[noreturn]] void OrvaneMain(BootOps& ops);

} // namespace orvane
