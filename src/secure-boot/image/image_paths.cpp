#include "secure-boot/image_paths.hpp"

#include "utils/platform/platform.hpp"

namespace orvane
{

std::string_view SideDirectory(uint8_t side)
{
    return side == sideA ? "/A/" : "/B/";
}

uint8_t OtherSide(uint8_t side)
{
    return side == sideA ? sideB : sideA;
}

std::string SidePath(std::string_view root, uint8_t side, std::string_view file)
{
    std::string path(root);
    path += SideDirectory(side);
    path += file;
    return path;
}

bool ImagePairExists(uint8_t side, std::string_view stem)
{
    const std::string base(stem);
    return platform::exists(SidePath(imageRoot, side, base + ".bin")) &&
           platform::exists(SidePath(imageRoot, side, base + ".ahdr"));
}

} // namespace orvane
