#pragma once

#include "secure-boot/fw_type.hpp"

#include <memory>
#include <string>

namespace orvane
{

class ImageProcessStrategy;
class SecureBootService;

// One component from its strategy to its power-on: fetch and verify the
// stored image, compare what the device holds, re-program it where it
// differs, power it on. True when the component counts as booted; an
// identifier without a case is true.
bool bringUpComponent(SecureBootService& service,
                      const std::shared_ptr<ImageProcessStrategy>& strategy,
                      const std::string& name, FwType id);

} // namespace orvane
