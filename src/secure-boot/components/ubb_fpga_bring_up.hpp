#pragma once

#include "secure-boot/fw_type.hpp"

#include <memory>
#include <string>

namespace orvane
{

class ImageProcessStrategy;
class SecureBootService;

// Programs a UBB FPGA image staged as a plain file on either side, A
// first, and removes each file once programmed. True when none failed.
bool runUbbFpgaPostUpdate();

// The UBB FPGA: staged images programmed, its flash checked by the eRoT,
// then configured from the side its record names.
bool BringUpUbbFpga(SecureBootService& service,
                    const std::shared_ptr<ImageProcessStrategy>& strategy,
                    const std::string& name, FwType id);

} // namespace orvane
