#include "secure-boot/fw_type.hpp"

namespace orvane
{

const FwNames* FindFwNames(uint32_t id)
{
    for (const FwNames& names : fwNames)
    {
        if (static_cast<uint32_t>(names.id) == id)
        {
            return &names;
        }
    }
    return nullptr;
}

} // namespace orvane
