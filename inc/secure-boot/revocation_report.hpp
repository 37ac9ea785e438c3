#pragma once

#include "secure-boot/boot_context.hpp"

namespace orvane
{

// The SVN result of an anti-rollback commit, one event per active
// component. Halts when the component info can't be read.
void ReportRevocation(BootContext& context);

} // namespace orvane
