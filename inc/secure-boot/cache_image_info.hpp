#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace orvane
{

class ImageProcessStrategy;
class SecureBootService;

// Publishes the AHDR of the side that the boot partition record names for
// one component; `strategy` is null for the four without an image pair.
void CacheImageInfo(SecureBootService& service,
                    const std::shared_ptr<ImageProcessStrategy>& strategy,
                    const std::string& key, uint32_t componentId);

} // namespace orvane
