#pragma once

#include "utils/platform/journal.hpp"

#include <memory>

namespace orvane::platform
{

// Entries in the systemd journal with the caller's location fields.
std::unique_ptr<Journal> makeRealJournal();

} // namespace orvane::platform
