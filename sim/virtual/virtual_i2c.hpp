#pragma once

#include "utils/platform/i2c_dev.hpp"
#include "virtual/board_link.hpp"

#include <map>
#include <memory>
#include <mutex>

namespace ubbsim
{

// i2c-dev on the virtual board. Descriptors live here, as the kernel keeps
// them per process; every transfer goes to the board with the slave
// address and PEC setting of its descriptor.
class VirtualI2c : public orvane::platform::I2cDev
{
  public:
    explicit VirtualI2c(BoardPort& link);

    int open(const std::string& path, int flags) override;
    int close(int fd) override;
    int setSlave(int fd, unsigned long address) override;
    int setPec(int fd, unsigned long value) override;
    int rdwr(int fd, i2c_rdwr_ioctl_data* data) override;
    ssize_t read(int fd, void* buffer, size_t length) override;
    ssize_t write(int fd, const void* buffer, size_t length) override;
    int32_t smbusReadByteData(int fd, uint8_t command) override;
    int32_t smbusWriteByteData(int fd, uint8_t command, uint8_t value) override;
    int32_t smbusWriteByte(int fd, uint8_t value) override;
    int32_t smbusReadI2cBlockData(int fd, uint8_t command, uint8_t length,
                                  uint8_t* values) override;
    int32_t smbusWriteI2cBlockData(int fd, uint8_t command, uint8_t length,
                                   const uint8_t* values) override;

  private:
    struct Descriptor
    {
        int bus = 0;
        uint16_t address = 0;
        bool addressSet = false;
        bool pec = false;
    };

    bool lookup(int fd, Descriptor& descriptor);
    // 0 or -errno; reads filled in.
    int transfer(const Descriptor& descriptor,
                 std::vector<I2cSegment>& segments);
    // The SMBus form: -errno or the count, errno set on failure.
    int32_t smbus(int fd, std::vector<I2cSegment>& segments);

    BoardPort& link;
    std::mutex mutex;
    std::map<int, Descriptor> descriptors;
    int nextFd = 1000;
};

} // namespace ubbsim
