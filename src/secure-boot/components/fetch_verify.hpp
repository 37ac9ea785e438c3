#pragma once

#include "secure-boot/fw_type.hpp"

#include <memory>
#include <string>

namespace orvane
{

class ImageProcessStrategy;
class SecureBootService;

// Fetches and verifies the stored image, and turns to auto recovery when
// either fails. False when the component can't go on.
bool FetchAndVerify(SecureBootService& service,
                    const std::shared_ptr<ImageProcessStrategy>& strategy,
                    const std::string& name, FwType id);

// Auto recovery of a component whose image or device failed; its failure
// is logged.
bool RecoverComponent(SecureBootService& service,
                      const std::shared_ptr<ImageProcessStrategy>& strategy,
                      const std::string& name, FwType id);

} // namespace orvane
