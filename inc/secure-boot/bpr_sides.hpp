#pragma once

#include "secure-boot/fw_type.hpp"

#include <cstdint>

namespace orvane
{

class SecureBootService;

// The side of a component in the boot partition table; A when it has no
// entry. The component threads read and write the table side by side, so
// these take the service's lock.
uint32_t BprSide(SecureBootService& service, FwType id);
void SetBprSide(SecureBootService& service, FwType id, uint32_t side);
// Records that the component now runs from the other side; the side it
// turned to.
uint32_t TurnBprSide(SecureBootService& service, FwType id);

} // namespace orvane
