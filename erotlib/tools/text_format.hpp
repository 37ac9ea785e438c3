#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The few renderings that every report shares.
namespace erotctl
{

// "0x" and `digits` lower-case hex digits, e.g. hexNumber(0x200, 4) is
// "0x0200".
std::string hexNumber(uint32_t value, int digits);

// Two lower-case hex digits per byte, no separators.
std::string hexBytes(const uint8_t* data, size_t length);

// The component's name, or "unknown" for an identifier the board lacks.
std::string componentName(uint16_t id);

// "yes" or "no".
std::string yesNo(bool value);

// "A" for side 0, "B" for side 1, "?" for anything else.
std::string sideName(uint32_t side);

// Device text up to its first zero byte, at most `length` bytes, with
// anything outside printable ASCII shown as '.' so that a report stays
// one line and valid JSON.
std::string printable(const char* text, size_t length);

} // namespace erotctl
