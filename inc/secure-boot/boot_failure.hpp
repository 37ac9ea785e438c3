#pragma once

#include "secure-boot/boot_context.hpp"

namespace orvane
{

// The halt of the boot: raises BootFailure, releases the Boot Critical
// Section, publishes "ManualRecovery" and sleeps for ever, so that the
// process stays up and its D-Bus objects keep answering. Returns only by an
// exception from the clock seam, which tests use to stop it.
[[noreturn]] void BootFailure(BootContext& context);

} // namespace orvane
