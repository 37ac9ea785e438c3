#include "utils/platform/real_i2c.hpp"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

// libi2c's header carries no C linkage of its own.
extern "C"
{
#include <i2c/smbus.h>
}

namespace orvane::platform
{

namespace
{

class RealI2cDev final : public I2cDev
{
  public:
    int open(const std::string& path, int flags) override
    {
        return ::open(path.c_str(), flags);
    }

    int close(int fd) override
    {
        return ::close(fd);
    }

    int setSlave(int fd, unsigned long address) override
    {
        return ::ioctl(fd, I2C_SLAVE, address);
    }

    int setPec(int fd, unsigned long value) override
    {
        return ::ioctl(fd, I2C_PEC, value);
    }

    int rdwr(int fd, i2c_rdwr_ioctl_data* data) override
    {
        return ::ioctl(fd, I2C_RDWR, data);
    }

    ssize_t read(int fd, void* buffer, size_t length) override
    {
        return ::read(fd, buffer, length);
    }

    ssize_t write(int fd, const void* buffer, size_t length) override
    {
        return ::write(fd, buffer, length);
    }

    int32_t smbusReadByteData(int fd, uint8_t command) override
    {
        return i2c_smbus_read_byte_data(fd, command);
    }

    int32_t smbusWriteByteData(int fd, uint8_t command, uint8_t value) override
    {
        return i2c_smbus_write_byte_data(fd, command, value);
    }

    int32_t smbusWriteByte(int fd, uint8_t value) override
    {
        return i2c_smbus_write_byte(fd, value);
    }

    int32_t smbusReadI2cBlockData(int fd, uint8_t command, uint8_t length,
                                  uint8_t* values) override
    {
        return i2c_smbus_read_i2c_block_data(fd, command, length, values);
    }

    int32_t smbusWriteI2cBlockData(int fd, uint8_t command, uint8_t length,
                                   const uint8_t* values) override
    {
        return i2c_smbus_write_i2c_block_data(fd, command, length, values);
    }
};

} // namespace

std::unique_ptr<I2cDev> makeRealI2cDev()
{
    return std::make_unique<RealI2cDev>();
}

} // namespace orvane::platform
