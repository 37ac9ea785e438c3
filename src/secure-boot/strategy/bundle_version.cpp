// TEMPORARY stand-in so that the strategies link before the bundle version
// write lands; replaced by the full version on merge.
#include "secure-boot/bundle_version.hpp"

namespace orvane
{

void WriteBundleVersion(uint32_t)
{}

} // namespace orvane
