#include "utils/i2c_channel.hpp"

#include "logging/log_line.hpp"
#include "logging/i2c_event.hpp"
#include "utils/platform/platform.hpp"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

namespace orvane
{

using logging::level::ERR;

namespace
{

// Bytes stream as characters; messages want their value.
unsigned num(uint8_t value)
{
    return value;
}

bool fail(int* event, I2C_Event code)
{
    *event = code;
    return false;
}

} // namespace

bool I2CChannel::OpenChannel(int* event)
{
    char path[15];
    std::snprintf(path, sizeof(path), "/dev/i2c-%d", bus);
    fd = platform::i2c().open(path, O_RDWR);
    if (fd < 0)
    {
        ConsoleLog(ERR) << "Failed to open the I2C bus";
        return fail(event, I2C_EVENT_OPEN);
    }
    *event = I2C_EVENT_NONE;
    return true;
}

bool I2CChannel::SetSlaveAddr(int* event, uint8_t address)
{
    if (platform::i2c().setSlave(fd, address) < 0)
    {
        int error = errno;
        // The stream stays in hex after the address, so errno shows in hex
        // without a 0x (121 as 79): the established text, kept as it is.
        ConsoleLog(ERR)
            << "Failed to acquire bus access and/or talk to slave, addr=0x"
            << std::hex << num(address) << " errno=" << error << " ("
            << std::strerror(error) << ")";
        return fail(event, I2C_EVENT_SLAVE_ADDRESS);
    }
    *event = I2C_EVENT_NONE;
    return true;
}

bool I2CChannel::SetPEC(int* event, unsigned long value)
{
    if (platform::i2c().setPec(fd, value) < 0)
    {
        int error = errno;
        ConsoleLog(ERR) << "Failed to set the PEC, value=" << value
                        << " errno=" << error << " (" << std::strerror(error)
                        << ")";
        return fail(event, I2C_EVENT_PEC);
    }
    *event = I2C_EVENT_NONE;
    return true;
}

bool I2CChannel::WriteMemoryByte(int* event, uint8_t address, uint8_t memAddr,
                                 uint8_t data)
{
    if (!SetSlaveAddr(event, address))
    {
        return false;
    }
    const uint8_t bytes[2] = {memAddr, data};
    // Cleared first so that a short count doesn't show a stale errno.
    errno = 0;
    ssize_t ret = platform::i2c().write(fd, bytes, sizeof(bytes));
    if (ret != 2)
    {
        int error = errno;
        ConsoleLog(ERR) << "I2C write to memory failed, addr=0x" << std::hex
                        << num(address) << " mem_addr=0x" << num(memAddr)
                        << " data=0x" << num(data) << std::dec << " ret=" << ret
                        << " expected=" << 2 << " errno=" << error << " ("
                        << std::strerror(error) << ")";
        return fail(event, I2C_EVENT_WRITE);
    }
    *event = I2C_EVENT_NONE;
    return true;
}

bool I2CChannel::WriteMemoryBlock(int* event, uint8_t address, uint8_t memAddr,
                                  uint32_t nBytes, const uint8_t* buffer)
{
    if (!SetSlaveAddr(event, address))
    {
        return false;
    }
    std::vector<uint8_t> bytes;
    bytes.reserve(size_t{nBytes} + 1);
    bytes.push_back(memAddr);
    bytes.insert(bytes.end(), buffer, buffer + nBytes);
    errno = 0;
    ssize_t ret = platform::i2c().write(fd, bytes.data(), bytes.size());
    if (ret != static_cast<ssize_t>(bytes.size()))
    {
        int error = errno;
        ConsoleLog(ERR) << "I2C write to memory from buffer failed, addr=0x"
                        << std::hex << num(address) << " mem_addr=0x"
                        << num(memAddr) << std::dec << " n_bytes=" << nBytes
                        << " ret=" << ret << " expected=" << bytes.size()
                        << " errno=" << error << " (" << std::strerror(error)
                        << ")";
        return fail(event, I2C_EVENT_WRITE);
    }
    *event = I2C_EVENT_NONE;
    return true;
}

bool I2CChannel::ReadMemoryByte(int* event, uint8_t address, uint8_t memAddr,
                                uint8_t* buffer)
{
    if (!SetSlaveAddr(event, address))
    {
        return false;
    }
    errno = 0;
    ssize_t ret = platform::i2c().write(fd, &memAddr, 1);
    if (ret != 1)
    {
        int error = errno;
        ConsoleLog(ERR) << "I2C write register address failed, addr=0x"
                        << std::hex << num(address) << " mem_addr=0x"
                        << num(memAddr) << std::dec << " write_ret=" << ret
                        << " expected=" << 1 << " errno=" << error << " ("
                        << std::strerror(error) << ")";
        return fail(event, I2C_EVENT_WRITE);
    }
    errno = 0;
    ret = platform::i2c().read(fd, buffer, 1);
    if (ret != 1)
    {
        int error = errno;
        ConsoleLog(ERR) << "I2C read from memory failed, addr=0x" << std::hex
                        << num(address) << " mem_addr=0x" << num(memAddr)
                        << std::dec << " read_ret=" << ret << " expected=" << 1
                        << " errno=" << error << " (" << std::strerror(error)
                        << ")";
        return fail(event, I2C_EVENT_READ);
    }
    *event = I2C_EVENT_NONE;
    return true;
}

bool I2CChannel::ReadMemoryBlock(int* event, uint8_t address, uint8_t memAddr,
                                 uint32_t length, uint8_t* buffer)
{
    if (!SetSlaveAddr(event, address))
    {
        return false;
    }
    // The plain variant: a failed register write is a silent false with
    // event still at 0, as the address set left it.
    if (platform::i2c().write(fd, &memAddr, 1) != 1)
    {
        return false;
    }
    if (platform::i2c().read(fd, buffer, length) !=
        static_cast<ssize_t>(length))
    {
        ConsoleLog(ERR) << "I2C read from memory failed";
        return fail(event, I2C_EVENT_READ);
    }
    *event = I2C_EVENT_NONE;
    return true;
}

bool I2CChannel::SmbusReadBlock(int* event, uint8_t address, uint8_t command,
                                uint8_t* buffer, uint8_t length)
{
    if (!SetSlaveAddr(event, address))
    {
        ConsoleLog(ERR) << "Fail to SetSlaveAddr 0x" << std::hex
                        << num(address);
        return false;
    }
    errno = 0;
    int32_t ret =
        platform::i2c().smbusReadI2cBlockData(fd, command, length, buffer);
    if (ret != length)
    {
        int error = errno;
        ConsoleLog(ERR) << "I2C SMbus read failed, addr=0x" << std::hex
                        << num(address) << " cmd=0x" << num(command) << std::dec
                        << " readsize=" << ret << " expected=" << num(length)
                        << " errno=" << error << " (" << std::strerror(error)
                        << ")";
        return fail(event, I2C_EVENT_READ);
    }
    *event = I2C_EVENT_NONE;
    return true;
}

bool I2CChannel::SmbusWriteByte(int* event, uint8_t address, uint8_t command,
                                bool pec)
{
    if (!SetSlaveAddr(event, address))
    {
        ConsoleLog(ERR) << "Fail to SetSlaveAddr 0x" << std::hex
                        << num(address);
        return false;
    }
    if (pec && !SetPEC(event, 1))
    {
        ConsoleLog(ERR) << "Fail to enable the PEC";
        return false;
    }
    errno = 0;
    int32_t ret = platform::i2c().smbusWriteByte(fd, command);
    if (ret < 0)
    {
        int error = errno;
        // PEC may stay on here: the caller closes the descriptor next.
        ConsoleLog(ERR) << "I2C Write byte failed, addr=0x" << std::hex
                        << num(address) << " cmd=0x" << num(command) << std::dec
                        << " ret=" << ret << " errno=" << error << " ("
                        << std::strerror(error) << ")";
        return fail(event, I2C_EVENT_WRITE);
    }
    if (pec && !SetPEC(event, 0))
    {
        ConsoleLog(ERR) << "Fail to disable the PEC";
        return false;
    }
    *event = I2C_EVENT_NONE;
    return true;
}

bool I2CChannel::SmbusWriteByteData(int* event, uint8_t address,
                                    uint8_t command, uint8_t data, bool pec)
{
    if (!SetSlaveAddr(event, address))
    {
        ConsoleLog(ERR) << "Fail to SetSlaveAddr 0x" << std::hex
                        << num(address);
        return false;
    }
    if (pec && !SetPEC(event, 1))
    {
        ConsoleLog(ERR) << "Fail to enable the PEC";
        return false;
    }
    errno = 0;
    int32_t ret = platform::i2c().smbusWriteByteData(fd, command, data);
    if (ret < 0)
    {
        int error = errno;
        ConsoleLog(ERR) << "I2C Write byte data failed, addr=0x" << std::hex
                        << num(address) << " cmd=0x" << num(command)
                        << " data=0x" << num(data) << std::dec << " ret=" << ret
                        << " errno=" << error << " (" << std::strerror(error)
                        << ")";
        return fail(event, I2C_EVENT_WRITE);
    }
    if (pec && !SetPEC(event, 0))
    {
        ConsoleLog(ERR) << "Fail to disable the PEC";
        return false;
    }
    *event = I2C_EVENT_NONE;
    return true;
}

bool I2CChannel::ReadMemoryBlock16(int* event, uint8_t address,
                                   uint16_t memAddr16, uint16_t length,
                                   uint8_t* buffer)
{
    if (!SetSlaveAddr(event, address))
    {
        ConsoleLog(ERR) << "Fail to SetSlaveAddr 0x" << std::hex
                        << num(address);
        return false;
    }
    uint8_t offset[2] = {static_cast<uint8_t>(memAddr16 >> 8),
                         static_cast<uint8_t>(memAddr16 & 0xFF)};
    i2c_msg messages[2] = {
        {address, 0, sizeof(offset), offset},
        {address, I2C_M_RD, length, buffer},
    };
    i2c_rdwr_ioctl_data transfer = {messages, 2};
    // A failed transfer is only the false result: the RM readers word their
    // own message, and event stays as the address set left it.
    return platform::i2c().rdwr(fd, &transfer) >= 0;
}

} // namespace orvane
