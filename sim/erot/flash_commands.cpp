// Flash sides, boot partition records, boot success, anti-rollback and
// resets.
#include "erot/byte_order.hpp"
#include "erot/erot_device.hpp"

#include <algorithm>

namespace ubbsim::erot
{

namespace
{

constexpr uint8_t bprFormat = 1;
constexpr uint32_t resetGuard = 0x5A17C3E9;
constexpr uint8_t resetSmc = 1;

// Requested revocations complete with the commit.
void completeRevocation(uint8_t& revocation)
{
    if (revocation == 1)
    {
        revocation = 2;
    }
}

} // namespace

Bytes ErotDevice::activeFlashConfig(Request request)
{
    return ReplyFrame(request, status::ok)
        .u8(current.activeSide)
        .u8(current.pendingSide)
        .u8(current.updateOnReboot ? 1 : 0)
        .take();
}

Bytes ErotDevice::signalBootSuccess(Request request)
{
    uint8_t stage = request[8];
    if (stage > 1)
    {
        return statusOnly(request, status::invalidArgument);
    }
    // Stage 0 commits anti-rollback when the SMC left it to the eRoT.
    bool commit = stage == 0 && current.autoArb;
    if (commit)
    {
        commitAntiRollback();
    }
    // The SMC flipped its FPGA's flash to recover: a boot that reaches its
    // success signal has recovered.
    current.persist[persistFpgaFlippedByte] = 0;
    appendTrace("BTOK", stage, commit ? 1 : 0, 5);
    return statusOnly(request, status::ok);
}

Bytes ErotDevice::bprRead(Request request)
{
    std::vector<const ComponentState*> listed;
    for (const ComponentState& component : current.components)
    {
        const auto& hidden = reporting.hiddenBpr;
        if (std::find(hidden.begin(), hidden.end(), component.id) ==
            hidden.end())
        {
            listed.push_back(&component);
        }
    }
    ReplyFrame reply(request, status::ok);
    reply.u8(bprFormat).u8(static_cast<uint8_t>(listed.size()));
    for (const ComponentState* component : listed)
    {
        reply.u16(component->id).u8(current.runningSide(*component));
    }
    return reply.take();
}

void ErotDevice::commitAntiRollback()
{
    for (ComponentState& component : current.components)
    {
        const SideInfo& running =
            component.sides[current.runningSide(component)];
        component.minSvn = std::max(component.minSvn, running.svn);
        for (SideInfo& side : component.sides)
        {
            completeRevocation(side.keyRevocation);
            completeRevocation(side.svnRevocation);
        }
    }
}

Bytes ErotDevice::arbCommit(Request request)
{
    commitAntiRollback();
    appendTrace("ARBC", static_cast<uint32_t>(current.components.size()), 0, 5);
    return statusOnly(request, status::ok);
}

// The side boots at the next SMC reset; the flag tells that boot that it
// carries a staged update, until the SMC clears it.
Bytes ErotDevice::selectActiveFlash(Request request)
{
    if (request[8] > 1)
    {
        return statusOnly(request, status::invalidArgument);
    }
    current.pendingSide = request[8];
    current.updateOnReboot = request[9] != 0;
    appendTrace("SAFL", request[8], request[9], 5);
    return statusOnly(request, status::ok);
}

Bytes ErotDevice::systemReset(Request request)
{
    if (le32(request, 8) != resetGuard || request[12] != resetSmc)
    {
        return statusOnly(request, status::invalidArgument);
    }
    resetRequested = true;
    appendTrace("SRST", request[12], current.resetReason, 5);
    return statusOnly(request, status::ok);
}

Bytes ErotDevice::getAutoArb(Request request)
{
    return ReplyFrame(request, status::ok).u8(current.autoArb ? 1 : 0).take();
}

Bytes ErotDevice::setAutoArb(Request request)
{
    current.autoArb = request[8] != 0;
    return statusOnly(request, status::ok);
}

Bytes ErotDevice::getResetReason(Request request)
{
    return ReplyFrame(request, status::ok).u32(current.resetReason).take();
}

Bytes ErotDevice::setResetReason(Request request)
{
    current.resetReason = le32(request, 8);
    return statusOnly(request, status::ok);
}

} // namespace ubbsim::erot
