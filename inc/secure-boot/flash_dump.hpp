#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace orvane
{

// Copies `size` bytes of a flash device to a file with dd: whole 512-byte
// blocks first, then the remainder byte by byte. False when a dd fails.
bool DumpFlash(const std::string& devicePath, const std::string& filePath,
               uint32_t size);

// The entry ("mtdN") below an MTD directory of sysfs whose partition is
// called `name`; empty when there is none.
std::string MtdNamed(std::string_view directory, std::string_view name);

// The MTD device of the UBB flash partition, "/dev/mtdN", found by name
// below the SPI controller; empty when there is none.
std::string FindFlashDevice();

// Whether Linux holds the SPI controller: its driver's link to it exists.
bool SpiDriverBound();

} // namespace orvane
