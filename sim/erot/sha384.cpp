#include "erot/sha384.hpp"

#include <openssl/evp.h>

#include <stdexcept>

namespace ubbsim::erot
{

Digest sha384(std::span<const uint8_t> data)
{
    Digest digest{};
    unsigned int length = 0;
    if (EVP_Digest(data.data(), data.size(), digest.data(), &length,
                   EVP_sha384(), nullptr) != 1 ||
        length != digest.size())
    {
        throw std::runtime_error("crypto: SHA-384");
    }
    return digest;
}

} // namespace ubbsim::erot
