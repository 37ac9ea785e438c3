#include "board/smc_expander.hpp"

namespace ubbsim
{

namespace
{

bool isBank(uint8_t reg)
{
    return reg >= 0x08 && reg <= 0x0B;
}

bool isDirection(uint8_t reg)
{
    return reg >= 0x18 && reg <= 0x1B;
}

} // namespace

SmcExpander::SmcExpander(Timeline& timeline, Waveform& waveform,
                         RailSet& rails) :
    timeline(timeline),
    waveform(waveform), rails(rails),
    unpluggedTrace(waveform.add("hgx_unplugged", 1)),
    i2cSwitchTrace(waveform.add("i2c_switch_rst_n", 1))
{}

uint8_t SmcExpander::pins(uint8_t bank) const
{
    size_t index = static_cast<size_t>(bank - 0x08);
    return output[index] & static_cast<uint8_t>(~direction[index]);
}

uint8_t SmcExpander::load(uint8_t reg)
{
    if (isBank(reg))
    {
        return output[reg - 0x08];
    }
    if (isDirection(reg))
    {
        return direction[reg - 0x18];
    }
    if (reg == 0x04)
    {
        uint8_t bits = rails.statusBits(reg) & ~unpluggedBit;
        return bits | (hostUnplugged ? unpluggedBit : 0);
    }
    if (reg <= 0x03)
    {
        return rails.statusBits(reg);
    }
    return 0x00;
}

void SmcExpander::store(uint8_t reg, uint8_t value)
{
    if (isBank(reg))
    {
        output[reg - 0x08] = value;
        apply();
    }
    else if (isDirection(reg))
    {
        direction[reg - 0x18] = value;
        apply();
    }
    // The status registers are inputs: writes to them change nothing.
}

void SmcExpander::preset(const std::array<uint8_t, 4>& outputs,
                         const std::array<uint8_t, 4>& directions)
{
    output = outputs;
    direction = directions;
    apply();
}

void SmcExpander::apply()
{
    for (size_t rail = 0; rail < railCount; ++rail)
    {
        const RailWiring& wiring = railTable[rail];
        rails.setEnable(rail, pins(wiring.bank) & wiring.enableMask);
    }
    waveform.set(i2cSwitchTrace, timeline.now(),
                 (pins(0x09) & i2cSwitchRun) != 0);
    if (onPinsChange)
    {
        onPinsChange();
    }
}

void SmcExpander::setUnplugged(bool unplugged)
{
    hostUnplugged = unplugged;
    waveform.set(unpluggedTrace, timeline.now(), unplugged);
}

} // namespace ubbsim
