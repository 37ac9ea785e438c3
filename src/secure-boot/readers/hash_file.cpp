// TEMPORARY stand-in so that the readers link before the hashing lands;
// replaced by the full version on merge.
#include "secure-boot/hash_file.hpp"

#include "utils/hex_text.hpp"
#include "utils/platform/platform.hpp"

#include <openssl/evp.h>

#include <fstream>
#include <iterator>
#include <vector>

namespace orvane
{

namespace
{

bool Digest(const std::string& path, const EVP_MD* type, uint8_t* out,
            size_t minimumSize)
{
    std::ifstream file(platform::path(path), std::ios::binary);
    if (!file)
    {
        return false;
    }
    std::vector<uint8_t> data((std::istreambuf_iterator<char>(file)),
                              std::istreambuf_iterator<char>());
    if (data.empty() || data.size() < minimumSize)
    {
        return false;
    }
    unsigned length = 0;
    return EVP_Digest(data.data(), data.size(), out, &length, type, nullptr) ==
           1;
}

} // namespace

bool HashFile(const std::string& path, uint32_t minimumSize,
              std::array<uint8_t, 48>& digest)
{
    return Digest(path, EVP_sha384(), digest.data(), minimumSize);
}

bool HashFileQuiet(const std::string& path, std::array<uint8_t, 48>& digest)
{
    return Digest(path, EVP_sha384(), digest.data(), 0);
}

bool HashFileSha256(const std::string& path, std::string& text)
{
    uint8_t digest[32];
    if (!Digest(path, EVP_sha256(), digest, 0))
    {
        return false;
    }
    text.clear();
    for (uint8_t byte : digest)
    {
        text += HexText(byte, 2);
    }
    return true;
}

std::string Sha256Text(const uint8_t* data, size_t length)
{
    uint8_t digest[32];
    unsigned size = 0;
    EVP_Digest(data, length, digest, &size, EVP_sha256(), nullptr);
    std::string text;
    for (uint8_t byte : digest)
    {
        text += HexText(byte, 2);
    }
    return text;
}

} // namespace orvane
