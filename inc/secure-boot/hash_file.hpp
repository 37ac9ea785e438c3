#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace orvane
{

// The digest library's one-time set-up (about 2 MB, most of it shared
// library pages), paid at start so that hashing an image later costs only
// its buffers.
void PrepareDigests();

// SHA-384 of the whole file, which must be at least `minimumSize` bytes:
// the verifiable size is a lower bound, the digest covers every byte. Prints
// its progress and a hex dump of the digest; false on any failure or on an
// empty file.
bool HashFile(const std::string& path, uint32_t minimumSize,
              std::array<uint8_t, 48>& digest);

// The same without the size check and the prints.
bool HashFileQuiet(const std::string& path, std::array<uint8_t, 48>& digest);

// SHA-256 of the file as lower-case hex text; false on failure or on an
// empty file.
bool HashFileSha256(const std::string& path, std::string& text);

// SHA-256 of bytes in memory as lower-case hex text.
std::string Sha256Text(const uint8_t* data, size_t length);

} // namespace orvane
