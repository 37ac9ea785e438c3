#pragma once

namespace orvane::platform
{

// Installs the real machine behind every seam, for the life of the process.
void installProduction();

} // namespace orvane::platform
