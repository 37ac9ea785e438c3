#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <cstdint>
#include <string>

namespace orvane
{

// One-try read-modify-write: OR `mask` in when `on`, AND it otherwise.
bool UpdateBits(OrvaneSvcState& state, int& errorCode, int channel,
                uint8_t address, uint8_t reg, uint8_t mask, uint8_t& written,
                uint8_t& readback, bool on, bool verify);

// The same through the retrying transfer, `tries` attempts per transfer.
// `check` is whether the transfers report their failures.
bool UpdateBitsRetry(OrvaneSvcState& state, int& errorCode, int tries,
                     int channel, uint8_t address, uint8_t reg, uint8_t mask,
                     uint8_t& written, uint8_t& readback, bool on, bool verify,
                     bool check, const std::string& label);

} // namespace orvane
