#include "board/dac.hpp"

namespace ubbsim
{

Dac::Dac(uint16_t value) : setting(value)
{}

int Dac::write(const std::vector<uint8_t>& data)
{
    if (data.empty())
    {
        return 0;
    }
    selected = data[0];
    if (selected == block && data.size() >= 3)
    {
        uint16_t word = static_cast<uint16_t>(data[1] | (data[2] << 8));
        setting = static_cast<uint16_t>((word >> 4) | (word << 12));
    }
    return 0;
}

int Dac::read(std::vector<uint8_t>& data)
{
    // Status, channel and configuration bytes lead the block.
    std::array<uint8_t, 5> bytes{0x00, 0x01, 0x00,
                                 static_cast<uint8_t>(setting & 0xFF),
                                 static_cast<uint8_t>(setting >> 8)};
    for (size_t i = 0; i < data.size(); ++i)
    {
        data[i] = (selected == block && i < bytes.size()) ? bytes[i] : 0x00;
    }
    return 0;
}

} // namespace ubbsim
