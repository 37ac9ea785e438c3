#include "erot/erot_state.hpp"

#include <algorithm>

namespace ubbsim::erot
{

ComponentState* ErotState::component(uint16_t id)
{
    auto found =
        std::find_if(components.begin(), components.end(),
                     [id](const auto& entry) { return entry.id == id; });
    return found == components.end() ? nullptr : &*found;
}

const ComponentState* ErotState::component(uint16_t id) const
{
    return const_cast<ErotState*>(this)->component(id);
}

uint8_t ErotState::runningSide(const ComponentState& entry) const
{
    return entry.bootSide.value_or(activeSide);
}

const TrustedKey* ErotState::key(uint8_t index) const
{
    auto found = std::find_if(keys.begin(), keys.end(), [index](const auto& k) {
        return k.index == index;
    });
    return found == keys.end() ? nullptr : &*found;
}

std::optional<uint32_t> ErotState::bkcVersion(uint16_t id) const
{
    for (const auto& [component, version] : bkcManifest)
    {
        if (component == id)
        {
            return version;
        }
    }
    return std::nullopt;
}

void ErotState::appendTrace(const TraceRecord& record)
{
    if (traceLog.size() >= traceCapacity)
    {
        traceLog.pop_front();
        traceOverflowed = true;
    }
    traceLog.push_back(record);
    if (traceLog.size() > 1)
    {
        traceLog.back().timestamp =
            std::max(record.timestamp, traceLog[traceLog.size() - 2].timestamp);
    }
}

} // namespace ubbsim::erot
