#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// Little-endian fields of frames and headers.
namespace ubbsim::erot
{

inline uint16_t le16(std::span<const uint8_t> bytes, size_t at)
{
    return static_cast<uint16_t>(bytes[at] | bytes[at + 1] << 8);
}

inline uint32_t le32(std::span<const uint8_t> bytes, size_t at)
{
    return static_cast<uint32_t>(le16(bytes, at)) |
           static_cast<uint32_t>(le16(bytes, at + 2)) << 16;
}

inline void putLe16(std::span<uint8_t> bytes, size_t at, uint16_t value)
{
    bytes[at] = static_cast<uint8_t>(value);
    bytes[at + 1] = static_cast<uint8_t>(value >> 8);
}

inline void putLe32(std::span<uint8_t> bytes, size_t at, uint32_t value)
{
    putLe16(bytes, at, static_cast<uint16_t>(value));
    putLe16(bytes, at + 2, static_cast<uint16_t>(value >> 16));
}

inline void putLe64(std::span<uint8_t> bytes, size_t at, uint64_t value)
{
    putLe32(bytes, at, static_cast<uint32_t>(value));
    putLe32(bytes, at + 4, static_cast<uint32_t>(value >> 32));
}

} // namespace ubbsim::erot
