#pragma once

#include "secure-boot/fw_type.hpp"

#include <cstdint>
#include <string>

namespace orvane
{

class ImageProcessStrategy;
class SecureBootService;

// The mux value of the retimer update script for a retimer component.
uint8_t RetimerMux(FwType id);

// Runs the retimer update script with the image of `side`; the caller
// learns the outcome from the next compare.
void programRetimer(SecureBootService& service, ImageProcessStrategy& strategy,
                    uint32_t side, uint8_t mux);

// Takes the image of Retimer_1 or Retimer_2 (`name` "retimer-1" or
// "retimer-2") out of the archive a manual update left behind.
bool extractRetimerImage(const std::string& name, uint8_t activeSide,
                         FwType id);

} // namespace orvane
