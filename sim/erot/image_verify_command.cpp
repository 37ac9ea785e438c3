#include "erot/byte_order.hpp"
#include "erot/erot_device.hpp"
#include "erot/image_verifier.hpp"

#include <algorithm>

namespace ubbsim::erot
{

namespace
{

constexpr size_t dataOffset = 61;

} // namespace

// Request: flags (8), component (9-10), the SMC's SHA-384 of the image
// (11-58), data length (59-60), the AHDR (61 on).
Bytes ErotDevice::imageVerify(Request request)
{
    if (request.size() < dataOffset ||
        request.size() != dataOffset + le16(request, 59))
    {
        return statusOnly(request, status::badLength);
    }
    uint16_t componentId = le16(request, 9);
    Digest hash{};
    std::copy_n(request.begin() + 11, hash.size(), hash.begin());
    Verdict verdict =
        verifyImage(current, componentId, hash, request.subspan(dataOffset));
    if (verdict != Verdict::pass)
    {
        appendTrace("IVFL", componentId, static_cast<uint32_t>(verdict), 4);
        return statusOnly(request, status::verifyFailed);
    }
    // The side that holds this image has now been measured.
    ComponentState* component = current.component(componentId);
    for (SideInfo& side : component->sides)
    {
        if (side.digest == hash)
        {
            side.hashValid = true;
            side.secureBootStatus = 1;
        }
    }
    appendTrace("IVOK", componentId, 0, 5);
    return statusOnly(request, status::ok);
}

} // namespace ubbsim::erot
