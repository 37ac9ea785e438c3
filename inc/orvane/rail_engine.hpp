#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <cstdint>
#include <span>
#include <string>

namespace orvane
{

// One rail in a list: its event number, its power good bit and register,
// and the enable mask (the bit to set when switching on; the AND mask when
// switching off).
struct RailEntry
{
    uint32_t event;
    uint8_t goodMask;
    uint8_t goodRegister;
    uint8_t enableMask;
};

using RailList = std::span<const RailEntry>;

// Switches every rail of the list, in order, with three attempts per rail,
// and waits for each one's power good. A failed rail stops the list.
bool EnableRails(OrvaneSvcState& state, int& errorCode, RailList rails,
                 uint8_t address, uint8_t bank, int channel, bool on);

// The name of a rail or stage event; false for a number without one.
bool GetEventName(uint32_t event, std::string& name);

// Polls a power good register (no sleep) until any bit of `mask` is set
// (`on`) or all are clear, for up to 2000 ms. `value` is the masked reading.
bool WaitPowerGood(OrvaneSvcState& state, int& errorCode, int channel,
                   uint8_t address, uint8_t reg, uint8_t mask, bool on,
                   uint8_t& value);

} // namespace orvane
