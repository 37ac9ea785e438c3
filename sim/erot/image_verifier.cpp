#include "erot/image_verifier.hpp"

#include "erot/ahdr.hpp"
#include "erot/ec_key.hpp"
#include "erot/signature_block.hpp"

#include <algorithm>
#include <stdexcept>

namespace ubbsim::erot
{

namespace
{

bool signatureHolds(const TrustedKey& trusted, const AhdrBytes& header,
                    const SignatureBlock& block)
{
    try
    {
        EcKey key = EcKey::fromPublicDer(trusted.publicDer);
        return key.verify(signedMessage(header), block.signature);
    }
    catch (const std::runtime_error&)
    {
        return false; // a key that doesn't load verifies nothing
    }
}

} // namespace

std::string_view verdictName(Verdict verdict)
{
    static constexpr std::string_view names[] = {
        "pass",       "badHeader",   "wrongComponent", "badFormat",
        "unknownKey", "revokedKey",  "digestMismatch", "badSignature",
        "rollback",   "keyMismatch", "reservedSet"};
    return names[static_cast<size_t>(verdict)];
}

Verdict verifyImage(const ErotState& state, uint16_t componentId,
                    const Digest& smcHash, std::span<const uint8_t> ahdr)
{
    if (ahdr.size() != ahdrSize)
    {
        return Verdict::badHeader;
    }
    AhdrBytes header{};
    std::copy(ahdr.begin(), ahdr.end(), header.begin());
    auto fields = parseAhdr(header);
    if (!fields)
    {
        return Verdict::badHeader;
    }
    const ComponentState* component = state.component(componentId);
    if (fields->componentId != componentId || component == nullptr)
    {
        return Verdict::wrongComponent;
    }
    SignatureBlock block = readSignatureBlock(header);
    if (block.format != signatureFormat)
    {
        return Verdict::badFormat;
    }
    if (!reservedBytesClear(header))
    {
        return Verdict::reservedSet;
    }
    if (fields->keyId != block.keyIndex)
    {
        return Verdict::keyMismatch;
    }
    const TrustedKey* key = state.key(block.keyIndex);
    if (key == nullptr)
    {
        return Verdict::unknownKey;
    }
    if (key->revoked)
    {
        return Verdict::revokedKey;
    }
    if (block.digest != smcHash)
    {
        return Verdict::digestMismatch;
    }
    if (!signatureHolds(*key, header, block))
    {
        return Verdict::badSignature;
    }
    return fields->svn < component->minSvn ? Verdict::rollback : Verdict::pass;
}

} // namespace ubbsim::erot
