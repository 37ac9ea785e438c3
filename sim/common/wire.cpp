#include "common/wire.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace ubbsim
{

namespace
{

// Frames larger than this are refused: no transfer of the board needs it.
constexpr uint32_t maxFrame = 1U << 20;

template <typename T>
void append(std::vector<uint8_t>& out, T value)
{
    for (size_t i = 0; i < sizeof(T); ++i)
    {
        out.push_back(
            static_cast<uint8_t>(static_cast<uint64_t>(value) >> (8 * i)));
    }
}

template <typename T>
T assemble(const uint8_t* bytes)
{
    uint64_t value = 0;
    for (size_t i = 0; i < sizeof(T); ++i)
    {
        value |= static_cast<uint64_t>(bytes[i]) << (8 * i);
    }
    return static_cast<T>(value);
}

bool writeAll(int fd, const uint8_t* data, size_t length)
{
    while (length > 0)
    {
        ssize_t n = ::send(fd, data, length, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
        {
            continue;
        }
        if (n <= 0)
        {
            return false;
        }
        data += n;
        length -= static_cast<size_t>(n);
    }
    return true;
}

bool readAll(int fd, uint8_t* data, size_t length)
{
    while (length > 0)
    {
        ssize_t n = ::recv(fd, data, length, 0);
        if (n < 0 && errno == EINTR)
        {
            continue;
        }
        if (n <= 0)
        {
            return false;
        }
        data += n;
        length -= static_cast<size_t>(n);
    }
    return true;
}

} // namespace

WireWriter& WireWriter::u8(uint8_t value)
{
    out.push_back(value);
    return *this;
}

WireWriter& WireWriter::u16(uint16_t value)
{
    append(out, value);
    return *this;
}

WireWriter& WireWriter::u32(uint32_t value)
{
    append(out, value);
    return *this;
}

WireWriter& WireWriter::i32(int32_t value)
{
    append(out, static_cast<uint32_t>(value));
    return *this;
}

WireWriter& WireWriter::u64(uint64_t value)
{
    append(out, value);
    return *this;
}

WireWriter& WireWriter::bytes(const std::vector<uint8_t>& value)
{
    u32(static_cast<uint32_t>(value.size()));
    out.insert(out.end(), value.begin(), value.end());
    return *this;
}

WireWriter& WireWriter::str(const std::string& value)
{
    u32(static_cast<uint32_t>(value.size()));
    out.insert(out.end(), value.begin(), value.end());
    return *this;
}

WireWriter& WireWriter::segment(const I2cSegment& segment)
{
    u16(segment.address).u8(segment.read ? 1 : 0).u16(segment.length);
    if (!segment.read)
    {
        bytes(segment.data);
    }
    return *this;
}

bool WireReader::take(void* target, size_t length)
{
    if (!ok || in.size() - position < length)
    {
        ok = false;
        std::memset(target, 0, length);
        return false;
    }
    std::memcpy(target, in.data() + position, length);
    position += length;
    return true;
}

uint8_t WireReader::u8()
{
    uint8_t value = 0;
    take(&value, 1);
    return value;
}

uint16_t WireReader::u16()
{
    uint8_t raw[2];
    take(raw, sizeof(raw));
    return assemble<uint16_t>(raw);
}

uint32_t WireReader::u32()
{
    uint8_t raw[4];
    take(raw, sizeof(raw));
    return assemble<uint32_t>(raw);
}

int32_t WireReader::i32()
{
    return static_cast<int32_t>(u32());
}

uint64_t WireReader::u64()
{
    uint8_t raw[8];
    take(raw, sizeof(raw));
    return assemble<uint64_t>(raw);
}

std::vector<uint8_t> WireReader::bytes()
{
    uint32_t length = u32();
    if (!ok || in.size() - position < length)
    {
        ok = false;
        return {};
    }
    std::vector<uint8_t> value(in.begin() + static_cast<long>(position),
                               in.begin() +
                                   static_cast<long>(position + length));
    position += length;
    return value;
}

std::string WireReader::str()
{
    auto raw = bytes();
    return std::string(raw.begin(), raw.end());
}

I2cSegment WireReader::segment()
{
    I2cSegment segment;
    segment.address = u16();
    segment.read = u8() != 0;
    segment.length = u16();
    if (!segment.read)
    {
        segment.data = bytes();
        if (segment.data.size() != segment.length)
        {
            ok = false;
        }
    }
    return segment;
}

bool sendFrame(int fd, const std::vector<uint8_t>& frame)
{
    uint8_t header[4];
    for (size_t i = 0; i < 4; ++i)
    {
        header[i] = static_cast<uint8_t>(frame.size() >> (8 * i));
    }
    return writeAll(fd, header, sizeof(header)) &&
           writeAll(fd, frame.data(), frame.size());
}

bool receiveFrame(int fd, std::vector<uint8_t>& frame)
{
    uint8_t header[4];
    if (!readAll(fd, header, sizeof(header)))
    {
        return false;
    }
    uint32_t length = assemble<uint32_t>(header);
    if (length > maxFrame)
    {
        return false;
    }
    frame.resize(length);
    return readAll(fd, frame.data(), length);
}

} // namespace ubbsim
