#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ubbsim
{

// Requests from the daemon's virtual backends to the board. Each frame is a
// 32-bit little-endian length and that many bytes; a request's first byte
// is its operation.
enum class Op : uint8_t
{
    i2cOpenBus = 1, // u16 bus -> i32 0 or -errno
    i2cTransfer,    // u16 bus, u8 pec, u8 n, n * segment -> i32, read bytes
    gpioFind,       // str name -> u8 found
    gpioRequest,    // str name, str consumer, u8 output, i32 flags,
                    // i32 default -> i32 0 or -errno, u32 handle
    gpioGet,        // u32 handle -> i32 value or -errno
    gpioSet,        // u32 handle, i32 value -> i32 0 or -errno
    gpioRelease,    // u32 handle -> i32 0 or -errno
    devMemRead,     // u64 base, u32 length, u32 offset -> i32, u32 value
    retimerEnsure,  // i32 switch value, str image path -> i32
    driverWrite,    // str sysfs driver file, str text -> i32 0 or -errno
    toolRun,        // str tool path, u8 n, n * str argument -> i32 0 or -errno
};

// One message of an I2C transfer: a write of `data`, or a read of `length`
// bytes into `data`.
struct I2cSegment
{
    uint16_t address = 0;
    bool read = false;
    uint16_t length = 0;
    std::vector<uint8_t> data;
};

class WireWriter
{
  public:
    WireWriter& u8(uint8_t value);
    WireWriter& u16(uint16_t value);
    WireWriter& u32(uint32_t value);
    WireWriter& i32(int32_t value);
    WireWriter& u64(uint64_t value);
    WireWriter& bytes(const std::vector<uint8_t>& value);
    WireWriter& str(const std::string& value);
    WireWriter& segment(const I2cSegment& segment);

    const std::vector<uint8_t>& buffer() const
    {
        return out;
    }

  private:
    std::vector<uint8_t> out;
};

// Reads fields in order; a read past the end marks the reader bad and
// yields zeros, so a malformed frame is answered, never trusted.
class WireReader
{
  public:
    explicit WireReader(const std::vector<uint8_t>& frame) : in(frame)
    {}

    uint8_t u8();
    uint16_t u16();
    uint32_t u32();
    int32_t i32();
    uint64_t u64();
    std::vector<uint8_t> bytes();
    std::string str();
    I2cSegment segment();
    bool good() const
    {
        return ok;
    }

  private:
    bool take(void* target, size_t length);

    const std::vector<uint8_t>& in;
    size_t position = 0;
    bool ok = true;
};

// Whole-frame I/O on a stream socket; false when the peer went away.
bool sendFrame(int fd, const std::vector<uint8_t>& frame);
bool receiveFrame(int fd, std::vector<uint8_t>& frame);

} // namespace ubbsim
