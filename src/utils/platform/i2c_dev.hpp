#pragma once

#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/types.h>

#include <cstdint>
#include <string>

namespace orvane::platform
{

// The i2c-dev character device as the kernel offers it. Every call follows
// the kernel's convention: a negative result with errno set on failure.
class I2cDev
{
  public:
    virtual ~I2cDev() = default;

    virtual int open(const std::string& path, int flags) = 0;
    virtual int close(int fd) = 0;
    virtual int setSlave(int fd, unsigned long address) = 0; // I2C_SLAVE
    virtual int setPec(int fd, unsigned long value) = 0;     // I2C_PEC
    virtual int rdwr(int fd, i2c_rdwr_ioctl_data* data) = 0; // I2C_RDWR
    virtual ssize_t read(int fd, void* buffer, size_t length) = 0;
    virtual ssize_t write(int fd, const void* buffer, size_t length) = 0;

    // The libi2c SMBus calls; they return a negative errno on failure.
    virtual int32_t smbusReadByteData(int fd, uint8_t command) = 0;
    virtual int32_t smbusWriteByteData(int fd, uint8_t command,
                                       uint8_t value) = 0;
    virtual int32_t smbusWriteByte(int fd, uint8_t value) = 0;
    virtual int32_t smbusReadI2cBlockData(int fd, uint8_t command,
                                          uint8_t length, uint8_t* values) = 0;
    virtual int32_t smbusWriteI2cBlockData(int fd, uint8_t command,
                                           uint8_t length,
                                           const uint8_t* values) = 0;
};

} // namespace orvane::platform
