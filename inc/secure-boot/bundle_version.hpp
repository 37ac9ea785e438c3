#pragma once

#include <cstdint>

namespace orvane
{

// Writes the bundle version to the RM of every OAM slot, most significant
// byte first; a failed write is logged and the next OAM goes on.
void WriteBundleVersion(uint32_t version);

} // namespace orvane
