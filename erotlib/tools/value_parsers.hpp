#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

// Operands of the subcommands. Each returns nothing for text it does not
// fully accept, so a typo is never sent to the device.
namespace erotctl
{

// Decimal, or hex with "0x", no greater than `max`.
std::optional<uint32_t> parseNumber(std::string_view text, uint32_t max);

// "A" or "0" is side 0, "B" or "1" side 1, in either case.
std::optional<uint8_t> parseSide(std::string_view text);

// "on" or "off".
std::optional<bool> parseOnOff(std::string_view text);

// Exactly `length` bytes as 2 * `length` hex digits, an optional "0x" in
// front.
std::optional<std::vector<uint8_t>> parseHexBytes(std::string_view text,
                                                  size_t length);

} // namespace erotctl
