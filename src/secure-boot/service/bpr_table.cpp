#include "secure-boot/bpr_table.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/secure_boot_service.hpp"

namespace orvane
{

uint32_t SideOf(const BprTable& table, FwType id)
{
    auto found = table.sides.find(id);
    return found == table.sides.end() ? 0 : found->second;
}

void PrintBprTable(const BprTable& table)
{
    ConsoleLog(logging::level::INFO) << "Current Boot Partition Record:";
    for (const auto& [id, side] : table.sides)
    {
        ConsoleLog(logging::level::INFO)
            << "[Component Id: 0x" << std::hex << static_cast<uint32_t>(id)
            << std::dec << ", Side: " << side << "]";
    }
}

} // namespace orvane
