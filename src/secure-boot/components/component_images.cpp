#include "secure-boot/components/component_images.hpp"

#include "secure-boot/image_strategy.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "utils/platform/platform.hpp"

#include <cstdio>

namespace orvane
{

const std::string& ImageOfSide(const ImageProcessStrategy& strategy,
                               uint32_t side)
{
    return side == strategy.activeSide ? strategy.activeImagePath
                                       : strategy.inactiveImagePath;
}

std::string VersionText(uint32_t version)
{
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08X", version);
    return text;
}

std::string SideVersionText(const ImageProcessStrategy& strategy, uint32_t side)
{
    return VersionText(side == strategy.activeSide
                           ? strategy.activeAhdr.currentSWVersion
                           : strategy.inactiveAhdr.currentSWVersion);
}

int RunTool(std::string command, size_t bufferSize)
{
    if (bufferSize > 0 && command.size() >= bufferSize)
    {
        command.resize(bufferSize - 1);
    }
    return platform::shell().system(command);
}

} // namespace orvane
