#include "erot/link_faults.hpp"

#include "erot/byte_order.hpp"
#include "erot/fw_components.hpp"
#include "erot/opcodes.hpp"

#include <algorithm>

namespace ubbsim::erot
{

namespace
{

bool isComponentInfo(uint8_t opcode)
{
    return opcode == op::componentInfoV2 || opcode == op::componentInfoV3 ||
           opcode == op::componentInfoV4;
}

// Faults of what the device reports act on the commands that report it.
bool opcodeMatches(const ErotFault& fault, std::span<const uint8_t> request)
{
    uint8_t opcode = request[7];
    if (fault.kind == "missingBpr")
    {
        return opcode == op::bprRead;
    }
    if (fault.kind == "secureBootFailed")
    {
        return isComponentInfo(opcode) && request.size() > 8 && request[8] == 0;
    }
    if (fault.opcode >= 0 && fault.opcode != opcode)
    {
        return false;
    }
    // A refusal of image verification may be meant for one component.
    if (fault.kind == "status" && !fault.component.empty())
    {
        auto component = componentByName(fault.component);
        return request.size() >= 11 && le16(request, 9) == component->id;
    }
    return true;
}

} // namespace

LinkFaults::LinkFaults(std::vector<ErotFault> faults)
{
    for (ErotFault& fault : faults)
    {
        int count = fault.count;
        armed.push_back({std::move(fault), count});
    }
}

bool LinkFaults::matches(const ErotFault& fault, SimTime now,
                         std::span<const uint8_t> request)
{
    auto seconds = [](double s) {
        return SimTime(static_cast<int64_t>(s * 1e9));
    };
    bool inWindow = now >= seconds(fault.at) &&
                    (!fault.until || now < seconds(*fault.until));
    return inWindow && request.size() >= headerSize &&
           opcodeMatches(fault, request);
}

std::vector<const ErotFault*> LinkFaults::strike(
    SimTime now, std::span<const uint8_t> request)
{
    std::vector<const ErotFault*> struck;
    for (Armed& entry : armed)
    {
        if (entry.remaining != 0 && matches(entry.fault, now, request))
        {
            if (entry.remaining > 0)
            {
                --entry.remaining;
            }
            struck.push_back(&entry.fault);
        }
    }
    return struck;
}

Reporting LinkFaults::reporting(const std::vector<const ErotFault*>& struck)
{
    Reporting result;
    for (const ErotFault* fault : struck)
    {
        auto component = componentByName(fault->component);
        if (fault->kind == "missingBpr")
        {
            result.hiddenBpr.push_back(component->id);
        }
        else if (fault->kind == "secureBootFailed")
        {
            result.failedSecureBoot.emplace_back(component->id, fault->side);
        }
    }
    return result;
}

const ErotFault* findKind(const std::vector<const ErotFault*>& struck,
                          const std::string& kind)
{
    auto found =
        std::find_if(struck.begin(), struck.end(),
                     [&](const ErotFault* f) { return f->kind == kind; });
    return found == struck.end() ? nullptr : *found;
}

} // namespace ubbsim::erot
