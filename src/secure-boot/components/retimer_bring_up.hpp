#pragma once

#include "secure-boot/fw_type.hpp"

#include <memory>
#include <string>

namespace orvane
{

class ImageProcessStrategy;
class SecureBootService;

// A retimer image: verified, then the devices compared with it and
// re-programmed, three rounds at most.
bool BringUpRetimer(SecureBootService& service,
                    const std::shared_ptr<ImageProcessStrategy>& strategy,
                    const std::string& name, FwType id);

} // namespace orvane
