#pragma once

#include <cstdint>

namespace orvane
{

class ImageProcessStrategy;

// Reads the inactive side's AHDR into the strategy and checks that its image
// is there (for the UBB FPGA: dumps the inactive flash); the digest is left
// to the caller. False, with its line, when auto recovery can't use it.
bool initInactiveSide(ImageProcessStrategy& strategy, uint32_t id);

} // namespace orvane
