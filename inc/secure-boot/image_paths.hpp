#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace orvane
{

// Images and AHDRs as delivered, one full set per side.
inline constexpr std::string_view imageRoot = "/var/lib/images";
// Dumps of what a device actually holds.
inline constexpr std::string_view workRoot = "/tmp/secure-boot";
inline constexpr std::string_view ifwiDumpStem = "IFWI_Dev_";

// Sides travel as one byte: 0 is A, 1 is B.
inline constexpr uint8_t sideA = 0;
inline constexpr uint8_t sideB = 1;

// "/A/" for side 0, "/B/" for any other.
std::string_view SideDirectory(uint8_t side);
uint8_t OtherSide(uint8_t side);

// root + side directory + file, e.g. "/var/lib/images/B/ifwi.bin".
std::string SidePath(std::string_view root, uint8_t side,
                     std::string_view file);

// Whether a side holds both files of an image pair, e.g. stem "retimer".
bool ImagePairExists(uint8_t side, std::string_view stem);

} // namespace orvane
