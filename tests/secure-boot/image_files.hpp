#pragma once

#include "secure-boot/ahdr.hpp"
#include "utils/platform/platform.hpp"

#include <openssl/evp.h>

#include <array>
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

inline AhdrHeader SampleAhdr(uint16_t componentId, uint32_t verifiableSize)
{
    AhdrHeader header{};
    header.magic = ahdrMagic;
    header.componentId = componentId;
    header.currentSWVersion = 0x01020304;
    header.verifiablePayloadSize = verifiableSize;
    return header;
}

// SHA-384 in one call over the whole buffer, apart from the daemon's
// streaming code.
inline std::array<uint8_t, 48> Sha384Of(const Bytes& data)
{
    std::array<uint8_t, 48> digest{};
    EVP_Digest(data.data(), data.size(), digest.data(), nullptr, EVP_sha384(),
               nullptr);
    return digest;
}

} // namespace orvane::test
