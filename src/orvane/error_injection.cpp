#include "orvane/error_injection.hpp"

#include "detail/board_constants.hpp"
#include "logging/log_line.hpp"
#include "logging/i2c_event.hpp"
#include "utils/i2c_ops.hpp"
#include "utils/platform/platform.hpp"

#include <fcntl.h>

#include <cstdio>

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

bool ReadOamErrorInjection(int* event, int bus, uint8_t& value)
{
    char path[15];
    std::snprintf(path, sizeof(path), "/dev/i2c-%d", bus);
    int fd = platform::i2c().open(path, O_RDWR);
    if (fd < 0)
    {
        ConsoleLog(logging::level::ERR) << "Failed to open the I2C bus";
        *event = I2C_EVENT_OPEN;
        return false;
    }
    *event = I2C_EVENT_NONE;
    uint8_t offset[2] = {injectionHigh, injectionLow};
    uint8_t byte = 0;
    i2c_msg messages[2] = {
        {rmAddress, 0, sizeof(offset), offset},
        {rmAddress, I2C_M_RD, 1, &byte},
    };
    i2c_rdwr_ioctl_data transfer = {messages, 2};
    int ret = platform::i2c().rdwr(fd, &transfer);
    ConsoleLog(logging::level::INFO)
        << "Read byte: 0x" << std::hex << unsigned{byte};
    value = byte;
    platform::i2c().close(fd);
    // The kernel's -1 passes this test too: callers judge the byte alone.
    return ret != 0;
}

} // namespace orvane
