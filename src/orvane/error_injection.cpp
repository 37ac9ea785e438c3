#include "board_constants.hpp"

#include "logging/log_line.hpp"
#include "orvane/base_power.hpp"
#include "utils/i2c_ops.hpp"


namespace orvane
{

namespace
{

using board::rmAddress;
using board::rmChannels;
using logging::level::ERR;
using logging::level::INFO;
// The RM's 16-bit register 0xF24E goes out as memory address 0xF2 with the
// low offset byte leading the data.
constexpr uint8_t injectionHigh = 0xF2;
constexpr uint8_t injectionLow = 0x4E;

// Bit 0 of the RM register is inverted against the name: 0 enables.
bool writeAll(bool enable)
{
    const uint8_t pair[2] = {injectionLow,
                             static_cast<uint8_t>(enable ? 0 : 1)};
    for (int channel : rmChannels)
    {
        int event = 0;
        if (!I2CWriteMemoryBlock(&event, channel, rmAddress, injectionHigh,
                                 sizeof(pair), pair))
        {
            return false;
        }
    }
    return true;
}

} // namespace

bool SetOamErrorInjection(OrvaneSvcState& state, bool enable)
{
    for (size_t oam = 0; oam < rmChannels.size(); ++oam)
    {
        int event = 0;
        uint8_t reading = 0;
        if (!ReadOamErrorInjection(&event, rmChannels[oam], reading))
        {
            ConsoleLog(ERR) << "Fail to Read OAM error injection";
            return false;
        }
        const bool disabled = (reading & 0x01) != 0;
        if (enable == disabled)
        {
            ConsoleLog(ERR) << "OAM " << oam << " set failed";
            if (!writeAll(enable))
            {
                ConsoleLog(ERR)
                    << (enable ? "Fail to enable oam error injection"
                               : "Fail to disable oam error "
                                 "injection");
                state.oamErrorInjection = false;
                return false;
            }
            ConsoleLog(INFO)
                << (enable
                        ? "Set OAM error injection to enable successfully "
                        : "Set OAM error injection to disable successfully ");
        }
        state.oamErrorInjection = enable;
    }
    return true;
}

} // namespace orvane
