#pragma once

#include "erotlib/wire_structs.hpp"
#include "secure-boot/ahdr.hpp"

#include <cstdint>
#include <string>

namespace orvane
{

// The nine property texts of one component.
struct ImageInfoTexts
{
    std::string version;
    std::string securityVersion;
    std::string signingKeyId;
    std::string customerId;
    std::string variantId;
    std::string componentDetails;
    std::string bkcVersion;
    std::string keyRevokeStatus;
    std::string svnRevokeStatus;
};

// A null `componentInfo`, or one of another component, gives "NaN" for the
// revocation texts; a BKC version of 0 gives "NaN".
ImageInfoTexts FormatImageInfo(uint32_t componentId, const AhdrHeader& ahdr,
                               const erot::BkcManifestEntry& bkcEntry,
                               const erot::ComponentInfo* componentInfo);

// Formats, logs and sets the nine properties of one component's interface.
void PublishImageInfo(uint32_t componentId, const AhdrHeader& ahdr,
                      const erot::BkcManifestEntry& bkcEntry,
                      const erot::ComponentInfo* componentInfo);

} // namespace orvane
