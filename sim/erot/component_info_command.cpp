#include "erot/byte_order.hpp"
#include "erot/erot_device.hpp"
#include "erot/opcodes.hpp"

#include <algorithm>

namespace ubbsim::erot
{

namespace
{

// One entry as format 4 lays it out; formats 3 and 2 are its first 324 and
// 319 bytes.
namespace field
{
constexpr size_t size = 334;
constexpr size_t componentId = 2;
constexpr size_t version = 5;
constexpr size_t svn = 9;
constexpr size_t keyId = 13;
constexpr size_t customerId = 17;
constexpr size_t variantId = 19;
constexpr size_t details = 21;
constexpr size_t detailsSize = 250;
constexpr size_t digest = 271;
constexpr size_t active = 319;
constexpr size_t secureBootStatus = 320;
constexpr size_t hashValid = 322;
constexpr size_t bkcGood = 323;
constexpr size_t keyRevocation = 324;
constexpr size_t svnRevocation = 325;
} // namespace field

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
            return {4, field::size};
        case op::componentInfoV3:
            return {3, 324};
        default:
            return {2, 319};
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
    Bytes bytes(field::size, 0);
    putLe16(bytes, field::componentId, component.id);
    putLe32(bytes, field::version, info.version);
    putLe32(bytes, field::svn, info.svn);
    putLe32(bytes, field::keyId, info.keyId);
    putLe16(bytes, field::customerId, info.customerId);
    putLe16(bytes, field::variantId, info.variantId);
    std::copy_n(info.details.begin(),
                std::min(info.details.size(), field::detailsSize),
                bytes.begin() + field::details);
    if (info.hashValid)
    {
        std::copy(info.digest.begin(), info.digest.end(),
                  bytes.begin() + field::digest);
    }
    bytes[field::active] = current.runningSide(component) == side ? 1 : 0;
    bytes[field::secureBootStatus] =
        reportedFailed(reporting, component.id, side) ? 0
                                                      : info.secureBootStatus;
    bytes[field::hashValid] = info.hashValid ? 1 : 0;
    auto bkc = current.bkcVersion(component.id);
    bytes[field::bkcGood] = bkc && *bkc == info.version ? 1 : 0;
    bytes[field::keyRevocation] = info.keyRevocation;
    bytes[field::svnRevocation] = info.svnRevocation;
    return bytes;
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
