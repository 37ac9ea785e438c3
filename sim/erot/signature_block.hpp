#pragma once

#include "erot/ahdr.hpp"
#include "erot/ec_key.hpp"
#include "erot/erot_state.hpp"

namespace ubbsim::erot
{

// The signature block, AHDR bytes [286, 578), as this board's eRoT reads it:
//
//   offset size
//        0    1  format, 1
//        1    1  index of the signing key in the eRoT's key table; the
//                header's signing key id (AHDR offset 20) names the same
//        2    2  reserved, 0
//        4   48  SHA-384 of the whole image file; all zeros for a header
//                that covers no image of its own (the firmware bundle)
//       52   96  ECDSA P-384 signature, r then s, 48 bytes each and
//                big-endian, over AHDR bytes [0, 338): the header and
//                every block byte before the signature, hashed with SHA-384
//      148  144  reserved, 0
inline constexpr uint8_t signatureFormat = 1;

struct SignatureBlock
{
    uint8_t format = 0;
    uint8_t keyIndex = 0;
    Digest digest{};
    RawSignature signature{};
};

SignatureBlock readSignatureBlock(const AhdrBytes& ahdr);
// Whether both reserved ranges of the block are zero.
bool reservedBytesClear(const AhdrBytes& ahdr);

// What the signature covers: everything before it.
std::vector<uint8_t> signedMessage(const AhdrBytes& ahdr);

// Fills the block of `ahdr` for an image with `digest`.
void signAhdr(AhdrBytes& ahdr, const Digest& digest, const EcKey& key,
              uint8_t keyIndex);

} // namespace ubbsim::erot
