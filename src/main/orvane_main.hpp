#pragma once

namespace orvane
{

// The daemon's life after the platform seams are installed: never returns.
// The shared memory name differs only where several boards share a machine.
[[noreturn]] void OrvaneMain(const char* shmName);

} // namespace orvane
