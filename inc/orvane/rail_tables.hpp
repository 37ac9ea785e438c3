#pragma once

#include "orvane/rail_engine.hpp"

#include <array>

namespace orvane
{

// Every rail sits on the SMC FPGA's expander image.
constexpr int railChannel = 4;
constexpr uint8_t railAddress = 0x25;

// Enable banks.
constexpr uint8_t fpgaBank = 0x08;
constexpr uint8_t oamBank = 0x09;
constexpr uint8_t retimerBank = 0x0A;
constexpr uint8_t k517Bank = 0x0B;

// The lists, in the order the sequences switch them. The off lists are
// constants of their own: two of their masks are not the complements of
// the on masks, and stay so.
extern const std::array<RailEntry, 5> fpgaRailsOn;
extern const std::array<RailEntry, 5> fpgaRailsOff;        // 5 down to 1
extern const std::array<RailEntry, 6> retimerRailsOn;      // 6 to 11
extern const std::array<RailEntry, 6> retimerRailsOff;     // 11 down to 6
extern const std::array<RailEntry, 2> k517RailsOn;         // 10, 11
extern const std::array<RailEntry, 2> k517RailsOffCycle;   // 11, 10 (standby)
extern const std::array<RailEntry, 2> k517RailsOffStandby; // 11, 10 (off)
extern const std::array<RailEntry, 2> oamRailsOn;          // 12, 13
extern const std::array<RailEntry, 2> oamRailsOff;         // 13, 12

} // namespace orvane
