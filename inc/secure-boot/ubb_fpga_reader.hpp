#pragma once

#include <cstdint>

namespace orvane
{

class ImageProcessStrategy;

// Dumps `size` bytes of the UBB FPGA flash of `side` to the strategy's
// active or inactive dump path: hands the SPI bus to the SMC, selects the
// flash, binds the SPI driver for the read and leaves it unbound.
bool ReadUBBFPGA(ImageProcessStrategy& strategy, uint8_t side, uint32_t size);

} // namespace orvane
