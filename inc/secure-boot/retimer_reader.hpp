#pragma once

#include <cstdint>
#include <string>

namespace orvane
{

class ImageProcessStrategy;

// Asks the retimer library whether every retimer of `name` ("Retimer",
// "Retimer_1" or "Retimer_2") holds the image of `side`; stops at the first
// that doesn't.
bool ReadRetimerConfig(ImageProcessStrategy& strategy, uint8_t side,
                       const std::string& name);

} // namespace orvane
