#pragma once

#include "secure-boot/fw_type.hpp"

#include <memory>
#include <string>

namespace orvane
{

class ImageProcessStrategy;
class SecureBootService;

// Runs the RM tool with the image and its version; true on exit status 0.
bool updateRm(const std::string& path, const std::string& version);

// The RMs of all OAMs: compared with the image and re-programmed, three
// rounds at most, and not before the VR update is over.
bool BringUpRm(SecureBootService& service,
               const std::shared_ptr<ImageProcessStrategy>& strategy,
               const std::string& name, FwType id);

} // namespace orvane
