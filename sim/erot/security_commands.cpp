// Manifest, settings, tokens, identity, certificates and revocation.
#include "erot/byte_order.hpp"
#include "erot/erot_device.hpp"
#include "erot/fw_components.hpp"

#include <algorithm>

namespace ubbsim::erot
{

namespace
{

constexpr uint8_t formatOne = 1;
constexpr size_t tokenSize = 634;
constexpr size_t maxFeature = 31;
// The most the device sends of its certificate chain in one response.
constexpr size_t chainPortion = 1024;
constexpr size_t keyRevokeBytes = 12;
constexpr size_t svnRevokeBytes = 58;

} // namespace

Bytes ErotDevice::bkcManifest(Request request)
{
    ReplyFrame reply(request, status::ok);
    reply.u8(formatOne);
    for (const auto& [id, version] : current.bkcManifest)
    {
        reply.u16(id).u32(version);
    }
    return reply.take();
}

// The token's settings are its first four bytes.
Bytes ErotDevice::securitySettings(Request request)
{
    return ReplyFrame(request, status::ok)
        .u8(formatOne)
        .u32(current.securitySettings)
        .u8(current.token ? 1 : 0)
        .u32(current.token ? le32(*current.token, 0) : 0)
        .take();
}

Bytes ErotDevice::setManageability(Request request)
{
    if (request[8] > maxFeature)
    {
        return statusOnly(request, status::invalidArgument);
    }
    uint32_t bit = 1U << request[8];
    current.manageability = request[9] != 0 ? current.manageability | bit
                                            : current.manageability & ~bit;
    return statusOnly(request, status::ok);
}

Bytes ErotDevice::tokenInstall(Request request)
{
    current.token = Bytes(request.begin() + 9, request.end());
    appendTrace("TKIN", 0, 0, 5);
    return statusOnly(request, status::ok);
}

Bytes ErotDevice::tokenErase(Request request)
{
    current.token.reset();
    appendTrace("TKER", 0, 0, 5);
    return statusOnly(request, status::ok);
}

Bytes ErotDevice::tokenRead(Request request)
{
    ReplyFrame reply(request, status::ok);
    reply.u8(current.token ? 1 : 0);
    Bytes token = current.token.value_or(Bytes(tokenSize, 0));
    token.resize(tokenSize);
    return reply.bytes(token).take();
}

Bytes ErotDevice::deviceId(Request request)
{
    return ReplyFrame(request, status::ok).bytes(current.deviceId).take();
}

Bytes ErotDevice::identity(Request request)
{
    return ReplyFrame(request, status::ok).bytes(current.identity).take();
}

// Request: offset (8-9), bytes wanted (10-11). Response: portion length,
// remaining length, portion.
Bytes ErotDevice::certificateChain(Request request)
{
    size_t offset = le16(request, 8);
    size_t wanted = le16(request, 10);
    const Bytes& chain = current.certChain;
    if (offset >= chain.size() || wanted == 0)
    {
        return statusOnly(request, status::invalidArgument);
    }
    size_t portion = std::min({wanted, chain.size() - offset, chainPortion});
    return ReplyFrame(request, status::ok)
        .u16(static_cast<uint16_t>(portion))
        .u16(static_cast<uint16_t>(chain.size() - offset - portion))
        .bytes(std::span(chain).subspan(offset, portion))
        .take();
}

// Bit n (least significant first) stands for key index n.
Bytes ErotDevice::keyRevokeBits(Request request)
{
    Bytes bits(keyRevokeBytes, 0);
    for (const TrustedKey& key : current.keys)
    {
        if (key.revoked && key.index / 8 < bits.size())
        {
            bits[key.index / 8] |= static_cast<uint8_t>(1U << (key.index % 8));
        }
    }
    return ReplyFrame(request, status::ok).u8(formatOne).bytes(bits).take();
}

// Byte n holds the committed minimum SVN of the n-th component of the
// component table, capped at 255; 0 for one the board doesn't carry.
Bytes ErotDevice::svnRevokeBits(Request request)
{
    Bytes table(svnRevokeBytes, 0);
    for (size_t n = 0; n < fwComponents.size(); ++n)
    {
        if (const ComponentState* component =
                current.component(fwComponents[n].id))
        {
            table[n] = static_cast<uint8_t>(
                std::min<uint32_t>(component->minSvn, 255));
        }
    }
    return ReplyFrame(request, status::ok).u8(formatOne).bytes(table).take();
}

} // namespace ubbsim::erot
