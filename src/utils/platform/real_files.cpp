#include "utils/platform/real_files.hpp"

namespace orvane::platform
{

namespace
{

class SystemRoot : public FileRoot
{
  public:
    std::filesystem::path resolve(std::string_view absolute) override
    {
        return std::filesystem::path(absolute);
    }
};

} // namespace

std::unique_ptr<FileRoot> makeRealFileRoot()
{
    return std::make_unique<SystemRoot>();
}

} // namespace orvane::platform
