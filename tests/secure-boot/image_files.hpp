#pragma once

#include "secure-boot/ahdr.hpp"
#include "utils/platform/platform.hpp"

#include <openssl/evp.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace orvane::test
{

using Bytes = std::vector<uint8_t>;

// Puts a file at a board path below the installed file root.
inline void WriteBoardFile(const std::string& path, const Bytes& bytes)
{
    const std::filesystem::path file = platform::path(path);
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

inline Bytes AhdrBytes(const AhdrHeader& header)
{
    const auto* raw = reinterpret_cast<const uint8_t*>(&header);
    return Bytes(raw, raw + sizeof(header));
}

// A header with the right magic and distinct values in every field.
inline AhdrHeader SampleAhdr(uint16_t componentId = 0x0600,
                             uint32_t verifiableSize = 0)
{
    AhdrHeader header{};
    header.magic = ahdrMagic;
    header.headerVersion = 0x00010002;
    header.flags = 0x0a0b;
    header.componentId = componentId;
    header.currentSWVersion = 0x01020304;
    header.securityVersion = 7;
    header.signingKeyId = 0x11223344;
    header.customerId = 0x5566;
    header.variantId = 0x7788;
    header.fullPayloadSize = 2 * verifiableSize;
    header.verifiablePayloadSize = verifiableSize;
    std::memcpy(header.componentDetails, "retimer image", 13);
    return header;
}

// The digest computed in one call over the whole buffer, apart from the
// daemon's streaming code.
template <size_t N>
std::array<uint8_t, N> OneShotDigest(const EVP_MD* md, const Bytes& data)
{
    std::array<uint8_t, N> digest{};
    unsigned length = 0;
    EVP_Digest(data.data(), data.size(), digest.data(), &length, md, nullptr);
    return digest;
}

// `size` bytes that differ from block to block.
inline Bytes Pattern(size_t size)
{
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
    {
        bytes[i] = static_cast<uint8_t>(i * 7 + i / 4096);
    }
    return bytes;
}

} // namespace orvane::test
