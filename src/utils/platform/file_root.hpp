#pragma once

#include <filesystem>
#include <string_view>

namespace orvane::platform
{

// Where the absolute paths of the board's files really live: "/" on the
// SMC, a directory of its own on the virtual board.
class FileRoot
{
  public:
    virtual ~FileRoot() = default;

    virtual std::filesystem::path resolve(std::string_view absolute) = 0;
};

} // namespace orvane::platform
