#pragma once

#include <cstdint>

namespace orvane
{

// A step of base power-on, not part of the power control interface:
// CLEAR_FAULTS to the UBB's regulators, then to those of every OAM whose
// bit in `prsnt` is clear (a clear bit means present).
namespace detail
{
void ClearVrFaults(uint8_t prsnt);
} // namespace detail

} // namespace orvane
