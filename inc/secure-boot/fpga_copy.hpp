#pragma once

#include <cstdint>

namespace orvane
{

struct BprTable;

// Programs the UBB FPGA's inactive flash with the active one's read-back
// when the two differ. `side` is the UBB FPGA's active side.
bool copyUbbFpga(uint8_t side);

// Copies the SMC FPGA's image to the inactive side and programs it there
// when the eRoT's digests of the two sides differ.
bool copySmcFpga(const BprTable& table, uint8_t side);

} // namespace orvane
