#include "erot/ec_key.hpp"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <stdexcept>

namespace ubbsim::erot
{

namespace
{

constexpr size_t coordinateSize = 48;

[[noreturn]] void cryptoFailed(const char* what)
{
    throw std::runtime_error(std::string("crypto: ") + what);
}

struct MdContext
{
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    ~MdContext()
    {
        EVP_MD_CTX_free(context);
    }
};

struct Signature
{
    ECDSA_SIG* sig = nullptr;
    ~Signature()
    {
        ECDSA_SIG_free(sig);
    }
};

std::vector<uint8_t> derFromRaw(const RawSignature& raw)
{
    Signature signature;
    signature.sig = ECDSA_SIG_new();
    BIGNUM* r = BN_bin2bn(raw.data(), coordinateSize, nullptr);
    BIGNUM* s = BN_bin2bn(raw.data() + coordinateSize, coordinateSize, nullptr);
    if (signature.sig == nullptr || r == nullptr || s == nullptr ||
        ECDSA_SIG_set0(signature.sig, r, s) != 1)
    {
        BN_free(r);
        BN_free(s);
        cryptoFailed("signature");
    }
    int length = i2d_ECDSA_SIG(signature.sig, nullptr);
    std::vector<uint8_t> der(length > 0 ? length : 0);
    unsigned char* out = der.data();
    i2d_ECDSA_SIG(signature.sig, &out);
    return der;
}

RawSignature rawFromDer(const std::vector<uint8_t>& der)
{
    const unsigned char* in = der.data();
    Signature signature;
    signature.sig = d2i_ECDSA_SIG(nullptr, &in, static_cast<long>(der.size()));
    if (signature.sig == nullptr)
    {
        cryptoFailed("signature encoding");
    }
    RawSignature raw{};
    const BIGNUM* r = nullptr;
    const BIGNUM* s = nullptr;
    ECDSA_SIG_get0(signature.sig, &r, &s);
    BN_bn2binpad(r, raw.data(), coordinateSize);
    BN_bn2binpad(s, raw.data() + coordinateSize, coordinateSize);
    return raw;
}

} // namespace

void EcKey::Free::operator()(EVP_PKEY* pkey) const noexcept
{
    EVP_PKEY_free(pkey);
}

EcKey::EcKey(EVP_PKEY* pkey) : key(pkey, Free{})
{
    if (pkey == nullptr)
    {
        cryptoFailed("no key");
    }
}

EcKey EcKey::generate()
{
    return EcKey(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-384"));
}

EcKey EcKey::fromPrivatePem(const std::string& pem)
{
    BIO* bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
    EVP_PKEY* pkey = PEM_read_bio_PrivateKey(bio, nullptr, nullptr, nullptr);
    BIO_free(bio);
    if (pkey == nullptr)
    {
        cryptoFailed("not a PEM private key");
    }
    return EcKey(pkey);
}

EcKey EcKey::fromPublicDer(std::span<const uint8_t> der)
{
    const unsigned char* in = der.data();
    EVP_PKEY* pkey = d2i_PUBKEY(nullptr, &in, static_cast<long>(der.size()));
    if (pkey == nullptr)
    {
        cryptoFailed("not a DER public key");
    }
    return EcKey(pkey);
}

std::string EcKey::privatePem() const
{
    BIO* bio = BIO_new(BIO_s_mem());
    if (PEM_write_bio_PrivateKey(bio, key.get(), nullptr, nullptr, 0, nullptr,
                                 nullptr) != 1)
    {
        BIO_free(bio);
        cryptoFailed("PEM encoding");
    }
    char* data = nullptr;
    long size = BIO_get_mem_data(bio, &data);
    std::string pem(data, static_cast<size_t>(size));
    BIO_free(bio);
    return pem;
}

std::vector<uint8_t> EcKey::publicDer() const
{
    int length = i2d_PUBKEY(key.get(), nullptr);
    if (length <= 0)
    {
        cryptoFailed("DER encoding");
    }
    std::vector<uint8_t> der(length);
    unsigned char* out = der.data();
    i2d_PUBKEY(key.get(), &out);
    return der;
}

RawSignature EcKey::sign(std::span<const uint8_t> message) const
{
    MdContext md;
    size_t length = 0;
    if (md.context == nullptr ||
        EVP_DigestSignInit(md.context, nullptr, EVP_sha384(), nullptr,
                           key.get()) != 1 ||
        EVP_DigestSign(md.context, nullptr, &length, message.data(),
                       message.size()) != 1)
    {
        cryptoFailed("sign");
    }
    std::vector<uint8_t> der(length);
    if (EVP_DigestSign(md.context, der.data(), &length, message.data(),
                       message.size()) != 1)
    {
        cryptoFailed("sign");
    }
    der.resize(length);
    return rawFromDer(der);
}

bool EcKey::verify(std::span<const uint8_t> message,
                   const RawSignature& signature) const
{
    std::vector<uint8_t> der = derFromRaw(signature);
    MdContext md;
    return md.context != nullptr &&
           EVP_DigestVerifyInit(md.context, nullptr, EVP_sha384(), nullptr,
                                key.get()) == 1 &&
           EVP_DigestVerify(md.context, der.data(), der.size(), message.data(),
                            message.size()) == 1;
}

} // namespace ubbsim::erot
