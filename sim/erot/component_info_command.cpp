#include "erot/erot_device.hpp"
#include "erot/opcodes.hpp"

#include <algorithm>
#include <cstring>
#include <erotlib/wire_structs.hpp>

namespace ubbsim::erot
{

namespace
{

struct InfoFormat
{
    uint8_t version;
    size_t entrySize;
};

InfoFormat formatOf(uint8_t opcode)
{
    switch (opcode)
    {
        case op::componentInfoV4:
            return {4, ::erot::componentInfoV4Size};
        case op::componentInfoV3:
            return {3, ::erot::componentInfoV3Size};
        default:
            return {2, ::erot::componentInfoV2Size};
    }
}

bool reportedFailed(const Reporting& reporting, uint16_t id, uint8_t side)
{
    return std::any_of(reporting.failedSecureBoot.begin(),
                       reporting.failedSecureBoot.end(), [&](const auto& f) {
                           return f.first == id &&
                                  (f.second < 0 || f.second == side);
                       });
}

} // namespace

Bytes ErotDevice::componentEntry(const ComponentState& component,
                                 uint8_t side) const
{
    const SideInfo& info = component.sides[side];
    ::erot::ComponentInfo entry{};
    entry.componentId = component.id;
    entry.version = info.version;
    entry.svn = info.svn;
    entry.keyId = info.keyId;
    entry.customerId = info.customerId;
    entry.variantId = info.variantId;
    std::memcpy(entry.details, info.details.data(),
                std::min(info.details.size(), sizeof(entry.details)));
    if (info.hashValid)
    {
        std::copy(info.digest.begin(), info.digest.end(), entry.digest);
    }
    entry.active = current.runningSide(component) == side ? 1 : 0;
    entry.secureBootStatus = reportedFailed(reporting, component.id, side)
                                 ? 0
                                 : info.secureBootStatus;
    entry.hashValid = info.hashValid ? 1 : 0;
    auto bkc = current.bkcVersion(component.id);
    entry.bkcGood = bkc && *bkc == info.version ? 1 : 0;
    entry.keyRevocationStatus = info.keyRevocation;
    entry.svnRevocationStatus = info.svnRevocation;
    const auto* raw = reinterpret_cast<const uint8_t*>(&entry);
    return Bytes(raw, raw + sizeof(entry));
}

// Two entries per component, side A then side B; older formats are the
// leading part of each entry.
Bytes ErotDevice::componentInfo(Request request)
{
    InfoFormat format = formatOf(request[7]);
    if (request[8] == 0)
    {
        componentPages = {request[7], {}};
        for (const ComponentState& component : current.components)
        {
            for (uint8_t side = 0; side < 2; ++side)
            {
                Bytes entry = componentEntry(component, side);
                entry.resize(format.entrySize);
                componentPages.entries.push_back(std::move(entry));
            }
        }
    }
    return page(request, componentPages, format.version,
                current.componentInfoPage, 0);
}

} // namespace ubbsim::erot
