#include "neighbours/call_log.hpp"

#include <algorithm>

namespace ubbsim
{

std::string BusCall::text() const
{
    if (propertyWrite)
    {
        return service + " " + member + " = " + arguments;
    }
    return service + " " + member + "(" + arguments + ")";
}

void CallLog::add(BusCall call)
{
    std::lock_guard lock(mutex);
    calls.push_back(std::move(call));
}

std::vector<BusCall> CallLog::entries() const
{
    std::lock_guard lock(mutex);
    return calls;
}

size_t CallLog::count(const std::string& member) const
{
    std::lock_guard lock(mutex);
    return static_cast<size_t>(std::count_if(
        calls.begin(), calls.end(),
        [&member](const BusCall& call) { return call.member == member; }));
}

} // namespace ubbsim
