#pragma once

#include "utils/platform/dev_mem.hpp"
#include "utils/platform/file_root.hpp"

#include <memory>

namespace orvane::platform
{

std::unique_ptr<FileRoot> makeRealFileRoot();
std::unique_ptr<DevMem> makeRealDevMem();

} // namespace orvane::platform
