#include "board/rm_device.hpp"

namespace ubbsim
{

RmDevice::RmDevice(int oam, const Timeline& timeline, const FaultBook& faults) :
    oam(oam), timeline(timeline), faults(faults)
{
    regs[errorInjection] = 0x01;
}

int RmDevice::write(const std::vector<uint8_t>& data)
{
    if (data.size() < 2)
    {
        return 0; // half an offset moves nothing
    }
    offset = static_cast<uint16_t>((data[0] << 8) | data[1]);
    for (size_t i = 2; i < data.size(); ++i)
    {
        regs[offset++] = data[i];
    }
    return 0;
}

int RmDevice::read(std::vector<uint8_t>& data)
{
    for (uint8_t& byte : data)
    {
        byte = value(offset++);
    }
    return 0;
}

uint8_t RmDevice::value(uint16_t at) const
{
    if (at == efuseState)
    {
        return faults.efuse(oam, timeline.now());
    }
    auto found = regs.find(at);
    return found == regs.end() ? 0x00 : found->second;
}

} // namespace ubbsim
