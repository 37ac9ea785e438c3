#pragma once

namespace orvane
{

class ImageProcessStrategy;

// Reads both UBB FPGA flashes, hashes the active one and has the eRoT
// verify that digest against the active AHDR.
bool verifyUbbFpgaDevice(ImageProcessStrategy& strategy);

} // namespace orvane
