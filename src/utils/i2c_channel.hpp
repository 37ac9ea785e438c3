#pragma once

#include <cstdint>

namespace orvane
{

// One opened /dev/i2c-N. The caller sets bus and fd, opens, and closes fd
// itself: there is no destructor on purpose, the one-shot operations own
// the descriptor's life.
struct I2CChannel
{
    int fd = 0;
    int bus = 0;

    bool OpenChannel(int* event);
    bool SetSlaveAddr(int* event, uint8_t address);
    bool SetPEC(int* event, unsigned long value);
    bool WriteMemoryByte(int* event, uint8_t address, uint8_t memAddr,
                         uint8_t data);
    bool WriteMemoryBlock(int* event, uint8_t address, uint8_t memAddr,
                          uint32_t nBytes, const uint8_t* buffer);
    bool ReadMemoryByte(int* event, uint8_t address, uint8_t memAddr,
                        uint8_t* buffer);
    bool ReadMemoryBlock(int* event, uint8_t address, uint8_t memAddr,
                         uint32_t length, uint8_t* buffer);
    bool SmbusReadBlock(int* event, uint8_t address, uint8_t command,
                        uint8_t* buffer, uint8_t length);
    bool SmbusWriteByte(int* event, uint8_t address, uint8_t command, bool pec);
    bool SmbusWriteByteData(int* event, uint8_t address, uint8_t command,
                            uint8_t data, bool pec);
    bool ReadMemoryBlock16(int* event, uint8_t address, uint16_t memAddr16,
                           uint16_t length, uint8_t* buffer);
};

} // namespace orvane
