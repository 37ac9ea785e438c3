#pragma once

#include "secure-boot/fw_type.hpp"

#include <memory>
#include <string>

namespace orvane
{

class ImageProcessStrategy;
class SecureBootService;

// One component on the main thread: UBB_FPGA and the retimers. A failure is
// reported and halts at once.
void bootOnMainThread(SecureBootService& service,
                      const std::shared_ptr<ImageProcessStrategy>& strategy,
                      const std::string& name, FwType id);

// The body of the thread of VR, RM, IFWI or BUNDLE. A failure is reported
// and left for the main thread to halt on once all threads are joined.
void componentBootThread(SecureBootService* service, FwType id,
                         const std::string& name);

} // namespace orvane
