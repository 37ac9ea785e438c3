#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

using EVP_PKEY = struct evp_pkey_st;

namespace ubbsim::erot
{

// An ECDSA signature on P-384 as raw r || s, 48 bytes each, big-endian.
using RawSignature = std::array<uint8_t, 96>;

// An ECDSA P-384 key with SHA-384: a pair that signs, or a public key that
// only verifies. Failures of the crypto library throw std::runtime_error.
class EcKey
{
  public:
    static EcKey generate();
    static EcKey fromPrivatePem(const std::string& pem);
    static EcKey fromPublicDer(std::span<const uint8_t> der);

    std::string privatePem() const;
    std::vector<uint8_t> publicDer() const;

    RawSignature sign(std::span<const uint8_t> message) const;
    // False for a wrong signature as for one that doesn't parse.
    bool verify(std::span<const uint8_t> message,
                const RawSignature& signature) const;

    EVP_PKEY* get() const
    {
        return key.get();
    }

  private:
    struct Free
    {
        void operator()(EVP_PKEY* pkey) const noexcept;
    };
    explicit EcKey(EVP_PKEY* pkey);

    std::shared_ptr<EVP_PKEY> key;
};

} // namespace ubbsim::erot
