#include "board/emc1438.hpp"

namespace ubbsim
{

Emc1438::Emc1438(const Timeline& timeline, const FaultBook& faults) :
    timeline(timeline), faults(faults)
{
    // Internal diode and the first external ones, in degrees.
    regs[0x00] = 38;
    regs[0x01] = 41;
    regs[0x23] = 43;
    regs[0x2A] = 44;
}

uint8_t Emc1438::load(uint8_t reg)
{
    if (reg == channelConfig)
    {
        if (auto stuck = faults.emcValue(timeline.now()))
        {
            return *stuck;
        }
    }
    return regs[reg];
}

void Emc1438::store(uint8_t reg, uint8_t value)
{
    regs[reg] = value;
}

} // namespace ubbsim
