#pragma once

#include "secure-boot/fw_type.hpp"

#include <cstdint>

namespace orvane
{

struct BprTable;

// The side of a component; A for one the table doesn't hold. Never inserts,
// so that component threads may read while others write their own entries.
uint32_t SideOf(const BprTable& table, FwType id);

// "Current Boot Partition Record:" and one line per entry.
void PrintBprTable(const BprTable& table);

} // namespace orvane
