#include "board/oam_mux.hpp"

#include <bit>

namespace ubbsim
{

void OamMux::setReleased(bool released)
{
    running = released;
    if (!running)
    {
        channels = 0;
    }
}

int OamMux::selectedOam() const
{
    if (!running || std::popcount(channels) != 1)
    {
        return -1;
    }
    return std::countr_zero(channels);
}

int OamMux::write(const std::vector<uint8_t>& data)
{
    if (!data.empty())
    {
        channels = data.back();
    }
    return 0;
}

int OamMux::read(std::vector<uint8_t>& data)
{
    for (uint8_t& byte : data)
    {
        byte = channels;
    }
    return 0;
}

} // namespace ubbsim
