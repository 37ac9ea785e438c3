#pragma once

#include <cstdint>
#include <string>

namespace orvane
{

// What the FRU scan learns of one fitted board.
struct FruRecord
{
    uint8_t index = 0; // OAM 0..7; 14 (its bus) for the UBB
    uint32_t address = 0;
    uint32_t bus = 0;
    std::string partNumber;
    std::string version;
    int32_t hwDesign = 0; // 0: not in the design table
    std::string thermalInfo;
};

} // namespace orvane
