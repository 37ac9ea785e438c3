#include "erot/signature_block.hpp"

#include <algorithm>

namespace ubbsim::erot
{

namespace
{

constexpr size_t formatAt = signatureBlockOffset;
constexpr size_t keyIndexAt = signatureBlockOffset + 1;
constexpr size_t digestAt = signatureBlockOffset + 4;
constexpr size_t signatureAt = digestAt + 48;
constexpr size_t trailerAt = signatureAt + 96;

} // namespace

SignatureBlock readSignatureBlock(const AhdrBytes& ahdr)
{
    SignatureBlock block;
    block.format = ahdr[formatAt];
    block.keyIndex = ahdr[keyIndexAt];
    std::copy_n(ahdr.begin() + digestAt, block.digest.size(),
                block.digest.begin());
    std::copy_n(ahdr.begin() + signatureAt, block.signature.size(),
                block.signature.begin());
    return block;
}

bool reservedBytesClear(const AhdrBytes& ahdr)
{
    auto zero = [](uint8_t byte) { return byte == 0; };
    return std::all_of(ahdr.begin() + keyIndexAt + 1, ahdr.begin() + digestAt,
                       zero) &&
           std::all_of(ahdr.begin() + trailerAt, ahdr.end(), zero);
}

std::vector<uint8_t> signedMessage(const AhdrBytes& ahdr)
{
    return {ahdr.begin(), ahdr.begin() + signatureAt};
}

void signAhdr(AhdrBytes& ahdr, const Digest& digest, const EcKey& key,
              uint8_t keyIndex)
{
    std::fill(ahdr.begin() + signatureBlockOffset, ahdr.end(), 0);
    ahdr[formatAt] = signatureFormat;
    ahdr[keyIndexAt] = keyIndex;
    std::copy(digest.begin(), digest.end(), ahdr.begin() + digestAt);
    RawSignature signature = key.sign(signedMessage(ahdr));
    std::copy(signature.begin(), signature.end(), ahdr.begin() + signatureAt);
}

} // namespace ubbsim::erot
