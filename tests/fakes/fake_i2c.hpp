#pragma once

#include "utils/platform/i2c_dev.hpp"

#include <cerrno>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <vector>

namespace orvane::test
{

// One call that reached the fake bus.
struct I2cOp
{
    // The SMBus kinds come last: their failures return -errno.
    enum class Kind
    {
        open,
        close,
        setSlave,
        setPec,
        rdwr,
        read,
        write,
        smbusWriteByteData,
        smbusWriteByte,
        smbusReadBlock,
        smbusWriteBlock,
    };
    Kind kind;
    int bus = -1;         // -1 for a descriptor the fake doesn't know
    uint8_t address = 0;  // slave of the descriptor; setSlave: the one asked
    uint16_t command = 0; // SMBus command, PEC value, or rdwr read's offset
    std::vector<uint8_t> bytes{}; // written; reads: the bytes handed back
    long result = 0;
};

// Matching calls fail with `error`, or with a short count instead; `times`
// -1 for every call.
struct I2cFault
{
    I2cOp::Kind kind;
    int bus;
    uint8_t address;
    int error = EIO;
    int times = -1;
    std::optional<long> shortCount{};
};

// Register-map devices on buses, in the place of i2c-dev. The first byte(s)
// of a write set a device's pointer; reads and writes advance it. Setting
// the address of a device that wasn't added works, as on Linux; transfers
// to it fail with ENXIO. Thread-safe.
class FakeI2c : public platform::I2cDev
{
  public:
    // /dev/i2c-N opens for a bus once added; a device adds its bus.
    void addBus(int bus);
    // offsetBytes 2: a 16-bit pointer, high byte first.
    void addDevice(int bus, uint8_t address, unsigned offsetBytes = 1);
    void removeDevice(int bus, uint8_t address);
    void setRegisters(int bus, uint8_t address, uint16_t first,
                      const std::vector<uint8_t>& values);
    void setRegister(int bus, uint8_t address, uint16_t reg, uint8_t value)
    {
        setRegisters(bus, address, reg, {value});
    }
    uint8_t registerValue(int bus, uint8_t address, uint16_t reg) const;

    void inject(const I2cFault& fault);
    void clearFaults();
    // Called after each call, outside the lock: a device may react.
    void setObserver(std::function<void(const I2cOp&)> observer);

    std::vector<I2cOp> operations(std::optional<I2cOp::Kind> kind = {}) const;
    void clearOperations();
    int openDescriptors() const;

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
    struct Device
    {
        unsigned offsetBytes = 1;
        uint16_t pointer = 0;
        std::map<uint16_t, uint8_t> registers;
    };

    // Records the call that `body` carries out under the lock; body gives
    // back the errno that failed it, or 0. With a descriptor, a closed one
    // fails the call and a matching fault may.
    template <typename Body>
    long run(I2cOp op, std::optional<int> fd, Body&& body);
    // A read or write at the device's pointer, or at `start`.
    long transfer(I2cOp::Kind kind, int fd, std::optional<uint16_t> start,
                  const uint8_t* in, uint8_t* out, size_t length, long done);
    Device* device(int bus, uint8_t address);

    mutable std::mutex mutex;
    std::set<int> buses;
    std::map<std::pair<int, uint8_t>, Device> devices;
    std::map<int, std::pair<int, uint8_t>> descriptors; // bus, address
    std::vector<I2cFault> faults;
    std::optional<long> shortCount; // of the fault that matched this call
    std::vector<I2cOp> recorded;
    std::function<void(const I2cOp&)> observer;
    int nextFd = 100;
};

} // namespace orvane::test
