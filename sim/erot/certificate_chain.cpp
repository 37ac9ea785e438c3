#include "erot/certificate_chain.hpp"

#include "erot/byte_order.hpp"
#include "erot/sha384.hpp"

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

namespace ubbsim::erot
{

namespace
{

constexpr long validSeconds = 20L * 365 * 24 * 3600;

struct X509Free
{
    void operator()(X509* certificate) const noexcept
    {
        X509_free(certificate);
    }
};

std::vector<uint8_t> selfSigned(const EcKey& key)
{
    std::unique_ptr<X509, X509Free> certificate(X509_new());
    X509* cert = certificate.get();
    X509_NAME* name = cert == nullptr ? nullptr : X509_get_subject_name(cert);
    if (name == nullptr || X509_set_version(cert, 2) != 1 ||
        ASN1_INTEGER_set(X509_get_serialNumber(cert), 1) != 1 ||
        X509_gmtime_adj(X509_getm_notBefore(cert), 0) == nullptr ||
        X509_gmtime_adj(X509_getm_notAfter(cert), validSeconds) == nullptr ||
        X509_NAME_add_entry_by_txt(
            name, "CN", MBSTRING_ASC,
            reinterpret_cast<const unsigned char*>("UBB eRoT identity"), -1, -1,
            0) != 1 ||
        X509_set_issuer_name(cert, name) != 1 ||
        X509_set_pubkey(cert, key.get()) != 1 ||
        X509_sign(cert, key.get(), EVP_sha384()) == 0)
    {
        throw std::runtime_error("crypto: certificate");
    }
    int length = i2d_X509(cert, nullptr);
    std::vector<uint8_t> der(length > 0 ? length : 0);
    unsigned char* out = der.data();
    i2d_X509(cert, &out);
    return der;
}

} // namespace

std::vector<uint8_t> makeCertificateChain(const EcKey& identity)
{
    std::vector<uint8_t> certificate = selfSigned(identity);
    Digest root = sha384(certificate);
    constexpr size_t rootAt = 4;
    std::vector<uint8_t> chain(rootAt + root.size() + certificate.size());
    std::copy(root.begin(), root.end(), chain.begin() + rootAt);
    std::copy(certificate.begin(), certificate.end(),
              chain.begin() + rootAt + root.size());
    putLe16(chain, 0, static_cast<uint16_t>(chain.size()));
    return chain;
}

} // namespace ubbsim::erot
