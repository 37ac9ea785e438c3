#include "board/io_expander.hpp"

namespace ubbsim
{

IoExpander::IoExpander(Inputs inputs) : inputs(std::move(inputs))
{
    powerOn();
}

void IoExpander::powerOn()
{
    output.fill(0x00);
    direction.fill(0xFF);
    openDrain = 0x00;
}

void IoExpander::setReset(bool hold)
{
    if (hold && !held)
    {
        powerOn();
    }
    held = hold;
}

uint8_t IoExpander::load(uint8_t reg)
{
    if (reg <= 0x04)
    {
        // Output pins read back what they drive; input pins what is on them.
        uint8_t outside = inputs ? inputs(reg) : 0x00;
        return static_cast<uint8_t>((output[reg] & ~direction[reg]) |
                                    (outside & direction[reg]));
    }
    if (reg >= 0x08 && reg <= 0x0C)
    {
        return output[reg - 0x08];
    }
    if (reg >= 0x18 && reg <= 0x1C)
    {
        return direction[reg - 0x18];
    }
    return reg == 0x28 ? openDrain : 0x00;
}

void IoExpander::store(uint8_t reg, uint8_t value)
{
    if (reg >= 0x08 && reg <= 0x0C)
    {
        output[reg - 0x08] = value;
    }
    else if (reg >= 0x18 && reg <= 0x1C)
    {
        direction[reg - 0x18] = value;
    }
    else if (reg == 0x28)
    {
        openDrain = value;
    }
}

} // namespace ubbsim
