#pragma once

#include "secure-boot/fw_type.hpp"

namespace orvane
{

class SecureBootService;

// Announces the component's power-on; the UBB FPGA is configured from the
// side its boot partition record names, and a failure there halts.
void powerOnComponent(SecureBootService& service, FwType id);

} // namespace orvane
