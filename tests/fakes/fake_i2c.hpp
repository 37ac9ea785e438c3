#pragma once

#include "utils/platform/i2c_dev.hpp"

#include <cerrno>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

namespace orvane::test
{

// One call that reached the fake bus.
struct I2cOp
{
    enum class Kind
    {
        open,
        close,
        setSlave,
        setPec,
        write,
        read,
        rdwr,
        smbusReadByteData,
        smbusWriteByteData,
        smbusWriteByte,
        smbusReadBlock,
        smbusWriteBlock,
    };
    Kind kind;
    int bus = -1;         // -1 for a descriptor the fake doesn't know
    uint8_t address = 0;  // slave of the descriptor; setSlave: the one asked
    uint16_t command = 0; // SMBus command, PEC value, or rdwr read's offset
    std::vector<uint8_t> bytes; // written; for reads, the bytes handed back
    long result = 0;
};

// What a matching call does instead of its normal work.
struct I2cFault
{
    I2cOp::Kind kind;
    int bus;
    std::optional<uint8_t> address; // any address when empty
    int error = EIO;                // failure with this errno ...
    std::optional<long> result;     // ... unless a short count is given
    int times = -1;                 // calls it applies to; -1 for all
};

// A set of buses with register-map devices on them, in the place of the
// kernel's i2c-dev. A device is a map of registers with a pointer that the
// first byte(s) of a write set and that reads and writes advance. Devices
// that were not added don't answer: setting their address works as on
// Linux, transfers to them fail with ENXIO. Thread-safe.
class FakeI2c : public platform::I2cDev
{
  public:
    // /dev/i2c-N opens for a bus once added; addDevice adds its bus.
    void addBus(int bus);
    // offsetBytes 2: the first two bytes of a write form a 16-bit pointer,
    // high byte first.
    void addDevice(int bus, uint8_t address, unsigned offsetBytes = 1);
    void removeDevice(int bus, uint8_t address);

    void setRegister(int bus, uint8_t address, uint16_t reg, uint8_t value);
    void setRegisters(int bus, uint8_t address, uint16_t first,
                      const std::vector<uint8_t>& values);
    // Unwritten registers read as 0.
    uint8_t registerValue(int bus, uint8_t address, uint16_t reg) const;

    void inject(const I2cFault& fault);
    void clearFaults();

    // Called after each operation, outside the fake's lock, so that a test
    // can make a device react (it may call back into the fake).
    void setObserver(std::function<void(const I2cOp&)> observer);

    std::vector<I2cOp> operations() const;
    std::vector<I2cOp> operations(I2cOp::Kind kind) const;
    void clearOperations();
    int openCount() const;  // successful opens
    int closeCount() const; // successful closes
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
    struct Descriptor
    {
        int bus;
        uint8_t address = 0;
    };

    // Records the call that `body` carries out under the lock; body gives
    // back the errno that failed it, or 0.
    template <typename Body>
    long run(I2cOp op, Body&& body);
    // The descriptor and fault checks that start a call on a descriptor;
    // the errno that ends it, or 0. A fault with a count instead of an
    // errno leaves that count in shortCount.
    int begin(I2cOp& op, int fd, std::optional<uint8_t> target,
              std::optional<long>& shortCount);
    // A read or write from the device's pointer, or from `start` (which
    // the bytes then don't carry); on success the result is `done`.
    long transfer(I2cOp::Kind kind, int fd, std::optional<uint16_t> start,
                  const uint8_t* in, uint8_t* out, size_t length, long done);
    Device* device(int bus, uint8_t address);

    mutable std::mutex mutex;
    std::vector<int> buses;
    std::map<std::pair<int, uint8_t>, Device> devices;
    std::map<int, Descriptor> descriptors;
    std::vector<I2cFault> faults;
    std::vector<I2cOp> recorded;
    std::function<void(const I2cOp&)> observer;
    int nextFd = 100;
    int opens = 0;
    int closes = 0;
};

} // namespace orvane::test
