#pragma once

#include "erot/erot_state.hpp"

#include <span>
#include <string_view>

namespace ubbsim::erot
{

// Why an image does or doesn't verify; the reason travels in the trace log.
enum class Verdict : uint8_t
{
    pass = 0,
    badHeader = 1,  // not 578 bytes, or no AHDR magic
    wrongComponent, // the header names another or an unknown component
    badFormat,      // signature block of an unknown format
    unknownKey,     // no trusted key at that index
    revokedKey,     // the key has been revoked
    digestMismatch, // the SMC's hash isn't the signed digest
    badSignature,   // the signature doesn't verify
    rollback,       // SVN below the committed minimum
    keyMismatch,    // the header's key id isn't the block's key
    reservedSet,    // a reserved byte of the block isn't zero
};

std::string_view verdictName(Verdict verdict);

// The eRoT's judgement of an image: header, digest sent by the SMC, key,
// signature and anti-rollback.
Verdict verifyImage(const ErotState& state, uint16_t componentId,
                    const Digest& smcHash, std::span<const uint8_t> ahdr);

} // namespace ubbsim::erot
