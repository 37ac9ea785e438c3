#pragma once

#include "erot/ec_key.hpp"

#include <cstdint>
#include <vector>

namespace ubbsim::erot
{

// The eRoT's certificate chain as it hands it out: total length (16 bits),
// 2 reserved bytes, the SHA-384 of the root certificate, then the DER
// certificates from the root on. Here the chain is one self-signed
// certificate of the device's identity key.
std::vector<uint8_t> makeCertificateChain(const EcKey& identity);

} // namespace ubbsim::erot
