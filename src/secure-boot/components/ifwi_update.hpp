#pragma once

#include "secure-boot/fw_type.hpp"

#include <cstdint>
#include <memory>
#include <string>

namespace orvane
{

class ImageProcessStrategy;
class SecureBootService;

// Runs the IFWI tool with the image at `path` and the version of `side`;
// true on exit status 0.
bool flashIfwi(ImageProcessStrategy& strategy, uint32_t side,
               const std::string& path);

// Brings every OAM's IFWI flash to the image of `side`, three programming
// attempts at most. True when the devices hold it.
bool updateIfwi(ImageProcessStrategy& strategy, uint32_t side,
                bool updateOnReboot);

bool BringUpIfwi(SecureBootService& service,
                 const std::shared_ptr<ImageProcessStrategy>& strategy,
                 const std::string& name, FwType id);

} // namespace orvane
