#pragma once

#include <cstdint>
#include <string>

namespace orvane
{

// One-shot transfers: open the bus, one transfer, close.
bool I2CWriteMemoryByte(int* event, int bus, uint8_t address, uint8_t memAddr,
                        uint8_t data);
bool I2CWriteMemoryBlock(int* event, int bus, uint8_t address, uint8_t memAddr,
                         uint32_t nBytes, const uint8_t* buffer);
bool I2CReadMemoryByte(int* event, int bus, uint8_t address, uint8_t memAddr,
                       uint8_t* buffer);
bool I2CSmbusReadBlock(int* event, int bus, uint8_t address, uint8_t command,
                       uint8_t* buffer, uint8_t length);
bool I2CSmbusWriteByte(int* event, int bus, uint8_t address, uint8_t command,
                       bool pec);
bool I2CSmbusWriteByteData(int* event, int bus, uint8_t address,
                           uint8_t command, uint8_t data, bool pec);
bool I2CReadMemoryBlock16(int* event, int bus, uint8_t address,
                          uint16_t memAddr16, uint16_t length, uint8_t* buffer);
bool I2CWriteThenRead(int* event, int bus, uint8_t address, uint8_t reg,
                      uint8_t data, uint8_t* readBack);

// The retrying transfer of the power sequences: an optional write of
// writeBuffer to reg, then an optional SMBus block read of reg.
bool WriteReadWithRetry(int* event, int retries, unsigned bus, unsigned address,
                        uint8_t reg, uint8_t writeLength, uint8_t* writeBuffer,
                        uint8_t readLength, uint8_t* readBuffer,
                        bool logFailure, const std::string& label);

} // namespace orvane
