#pragma once

#include "main/boot_ops.hpp"

namespace orvane
{

// The daemon's life after the platform seams are installed: never returns.
// The shared memory name differs only where several boards share a machine.
[[noreturn]] void OrvaneMain(BootOps& ops, const char* shmName);

} // namespace orvane
