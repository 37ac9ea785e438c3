// TEMPORARY: stands in for the post-boot report until its real definition
// is merged. Weak, so that the real one wins at link time; delete this file
// (and its line in meson.build) then.

#include "secure-boot/boot_success.hpp"

namespace orvane
{

__attribute__((weak)) void postBootReport(SecureBootService&)
{}

} // namespace orvane
