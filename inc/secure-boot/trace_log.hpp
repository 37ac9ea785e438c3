#pragma once

#include "secure-boot/boot_context.hpp"

namespace orvane
{

// Pulls the eRoT's trace log and reports the entries not seen before in
// this process: a console line each, and events for recoveries and errors.
// Never halts.
void PrintDebugTraceLog(BootContext& context);

// Forgets the last entry seen, as a restart of the daemon does.
void ResetTraceLogCursor();

} // namespace orvane
