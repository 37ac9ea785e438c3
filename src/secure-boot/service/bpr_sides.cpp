#include "secure-boot/bpr_sides.hpp"

#include "secure-boot/secure_boot_service.hpp"

namespace orvane
{

uint32_t BprSide(SecureBootService& service, FwType id)
{
    std::lock_guard<std::mutex> hold(service.lock);
    const auto found = service.bprTable->sides.find(id);
    return found == service.bprTable->sides.end() ? 0 : found->second;
}

void SetBprSide(SecureBootService& service, FwType id, uint32_t side)
{
    std::lock_guard<std::mutex> hold(service.lock);
    service.bprTable->sides[id] = side;
}

uint32_t TurnBprSide(SecureBootService& service, FwType id)
{
    std::lock_guard<std::mutex> hold(service.lock);
    uint32_t& side = service.bprTable->sides[id];
    side = side == 0 ? 1 : 0;
    return side;
}

} // namespace orvane
