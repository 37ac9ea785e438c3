#include "vr-service/design_table.hpp"

#include "logging/log_line.hpp"

#include <cstdlib>
#include <limits>

namespace orvane
{

namespace
{

// A UBB's small design number as the key of its row: "1" is "21". A number
// too large to move up matches no row.
std::string UbbDesignKey(const std::string& text)
{
    constexpr long offset = 20;
    const long number = std::strtol(text.c_str(), nullptr, 10);
    if (number > std::numeric_limits<long>::max() - offset)
    {
        return {};
    }
    return std::to_string(number + offset);
}

} // namespace

void LookUpDesign(const VrDesignTable& table, FruRecord& record, int kind)
{
    record.hwDesign = 0;
    std::string key = record.partNumber;
    if (kind == fruKindUbb && !key.starts_with(UbbPartNumberPrefix()))
    {
        key = UbbDesignKey(key);
    }
    for (const auto& entry : table)
    {
        if (entry->key == key)
        {
            record.hwDesign = entry->design;
            record.thermalInfo = entry->thermal;
            ConsoleLog(logging::level::INFO)
                << "Get VRModel: " << key << ", VRrev: " << entry->design
                << ", Version: " << entry->thermal;
            return;
        }
    }
}

} // namespace orvane
