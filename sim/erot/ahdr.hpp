#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace ubbsim::erot
{

// The signed header that stands beside every image: 578 bytes,
// little-endian, its last 292 bytes the signature block.
inline constexpr size_t ahdrSize = 578;
inline constexpr size_t signatureBlockOffset = 286;
inline constexpr size_t signatureBlockSize = 292;
inline constexpr size_t detailsSize = 250;
inline constexpr uint32_t ahdrMagic = 0x52444841; // "AHDR"

using AhdrBytes = std::array<uint8_t, ahdrSize>;

// The fields before the signature block.
struct AhdrFields
{
    uint32_t headerVersion = 1;
    uint16_t flags = 0;
    uint16_t componentId = 0;
    uint32_t version = 0;
    uint32_t svn = 0;
    uint32_t keyId = 0;
    uint16_t customerId = 0;
    uint16_t variantId = 0;
    uint32_t fullPayloadSize = 0;
    uint32_t verifiablePayloadSize = 0;
    std::string details; // at most 250 bytes
};

// Header with a zeroed signature block.
AhdrBytes buildAhdr(const AhdrFields& fields);
// The fields of a header whose magic is right; none otherwise.
std::optional<AhdrFields> parseAhdr(std::span<const uint8_t, ahdrSize> bytes);

} // namespace ubbsim::erot
