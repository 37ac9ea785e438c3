#include "utils/i2c_ops.hpp"

#include "logging/log_line.hpp"
#include "utils/i2c_channel.hpp"
#include "logging/i2c_event.hpp"
#include "utils/platform/platform.hpp"

#include <fcntl.h>

#include <cstdio>

namespace orvane
{

namespace
{

// Open the bus, run one channel operation, close: no descriptor outlives
// the call.
template <typename Operation>
bool oneShot(int* event, int bus, Operation operation)
{
    I2CChannel channel;
    channel.bus = bus;
    if (!channel.OpenChannel(event))
    {
        ConsoleLog(logging::level::ERR) << "Fail to OpenCHannel";
        return false;
    }
    bool ok = operation(channel);
    platform::i2c().close(channel.fd);
    return ok;
}

} // namespace

bool I2CWriteMemoryByte(int* event, int bus, uint8_t address, uint8_t memAddr,
                        uint8_t data)
{
    return oneShot(event, bus, [&](I2CChannel& channel) {
        return channel.WriteMemoryByte(event, address, memAddr, data);
    });
}

bool I2CWriteMemoryBlock(int* event, int bus, uint8_t address, uint8_t memAddr,
                         uint32_t nBytes, const uint8_t* buffer)
{
    return oneShot(event, bus, [&](I2CChannel& channel) {
        return channel.WriteMemoryBlock(event, address, memAddr, nBytes,
                                        buffer);
    });
}

bool I2CReadMemoryByte(int* event, int bus, uint8_t address, uint8_t memAddr,
                       uint8_t* buffer)
{
    return oneShot(event, bus, [&](I2CChannel& channel) {
        return channel.ReadMemoryByte(event, address, memAddr, buffer);
    });
}

bool I2CSmbusReadBlock(int* event, int bus, uint8_t address, uint8_t command,
                       uint8_t* buffer, uint8_t length)
{
    return oneShot(event, bus, [&](I2CChannel& channel) {
        return channel.SmbusReadBlock(event, address, command, buffer, length);
    });
}

bool I2CSmbusWriteByte(int* event, int bus, uint8_t address, uint8_t command,
                       bool pec)
{
    return oneShot(event, bus, [&](I2CChannel& channel) {
        return channel.SmbusWriteByte(event, address, command, pec);
    });
}

bool I2CSmbusWriteByteData(int* event, int bus, uint8_t address,
                           uint8_t command, uint8_t data, bool pec)
{
    return oneShot(event, bus, [&](I2CChannel& channel) {
        return channel.SmbusWriteByteData(event, address, command, data, pec);
    });
}

bool I2CReadMemoryBlock16(int* event, int bus, uint8_t address,
                          uint16_t memAddr16, uint16_t length, uint8_t* buffer)
{
    return oneShot(event, bus, [&](I2CChannel& channel) {
        return channel.ReadMemoryBlock16(event, address, memAddr16, length,
                                         buffer);
    });
}

bool I2CWriteThenRead(int* event, int bus, uint8_t address, uint8_t reg,
                      uint8_t data, uint8_t* readBack)
{
    return oneShot(event, bus, [&](I2CChannel& channel) {
        // Plain printf: these two lines predate the log line format.
        if (!channel.WriteMemoryByte(event, address, reg, data))
        {
            std::printf("Write 0x%02x fail\n", reg);
            return false;
        }
        if (!channel.ReadMemoryByte(event, address, reg, readBack))
        {
            std::printf("Read 0x%02x fail\n", reg);
            return false;
        }
        return true;
    });
}

} // namespace orvane
