#include "virtual/virtual_i2c.hpp"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

namespace ubbsim
{

namespace
{

// The kernel's SMBus block transfers stop at 32 bytes.
constexpr uint8_t smbusBlockMax = 32;

int failWith(int error)
{
    errno = error;
    return -1;
}

I2cSegment writeOf(uint16_t address, std::vector<uint8_t> bytes)
{
    I2cSegment segment;
    segment.address = address;
    segment.length = static_cast<uint16_t>(bytes.size());
    segment.data = std::move(bytes);
    return segment;
}

I2cSegment readOf(uint16_t address, uint16_t length)
{
    I2cSegment segment;
    segment.address = address;
    segment.read = true;
    segment.length = length;
    return segment;
}

} // namespace

VirtualI2c::VirtualI2c(BoardPort& link) : link(link)
{}

int VirtualI2c::open(const std::string& path, int)
{
    constexpr std::string_view prefix = "/dev/i2c-";
    if (!path.starts_with(prefix))
    {
        return failWith(ENOENT);
    }
    int bus = 0;
    try
    {
        size_t used = 0;
        bus = std::stoi(path.substr(prefix.size()), &used);
        if (used != path.size() - prefix.size())
        {
            return failWith(ENOENT);
        }
    }
    catch (const std::exception&)
    {
        return failWith(ENOENT);
    }
    WireWriter request;
    request.u8(static_cast<uint8_t>(Op::i2cOpenBus))
        .u16(static_cast<uint16_t>(bus));
    auto reply = link.call(request);
    WireReader in(reply);
    int32_t result = reply.empty() ? -EIO : in.i32();
    if (result < 0)
    {
        return failWith(-result);
    }
    std::lock_guard lock(mutex);
    int fd = nextFd++;
    descriptors[fd] = Descriptor{bus, 0, false, false};
    return fd;
}

int VirtualI2c::close(int fd)
{
    std::lock_guard lock(mutex);
    return descriptors.erase(fd) == 1 ? 0 : failWith(EBADF);
}

int VirtualI2c::setSlave(int fd, unsigned long address)
{
    std::lock_guard lock(mutex);
    auto found = descriptors.find(fd);
    if (found == descriptors.end())
    {
        return failWith(EBADF);
    }
    if (address > 0x7F)
    {
        return failWith(EINVAL);
    }
    found->second.address = static_cast<uint16_t>(address);
    found->second.addressSet = true;
    return 0;
}

int VirtualI2c::setPec(int fd, unsigned long value)
{
    std::lock_guard lock(mutex);
    auto found = descriptors.find(fd);
    if (found == descriptors.end())
    {
        return failWith(EBADF);
    }
    found->second.pec = value != 0;
    return 0;
}

bool VirtualI2c::lookup(int fd, Descriptor& descriptor)
{
    std::lock_guard lock(mutex);
    auto found = descriptors.find(fd);
    if (found == descriptors.end())
    {
        errno = EBADF;
        return false;
    }
    descriptor = found->second;
    return true;
}

int VirtualI2c::transfer(const Descriptor& descriptor,
                         std::vector<I2cSegment>& segments)
{
    WireWriter request;
    request.u8(static_cast<uint8_t>(Op::i2cTransfer))
        .u16(static_cast<uint16_t>(descriptor.bus))
        .u8(descriptor.pec ? 1 : 0)
        .u8(static_cast<uint8_t>(segments.size()));
    for (const auto& segment : segments)
    {
        request.segment(segment);
    }
    auto reply = link.call(request);
    if (reply.empty())
    {
        return -EIO;
    }
    WireReader in(reply);
    int32_t result = in.i32();
    if (result < 0)
    {
        return result;
    }
    for (auto& segment : segments)
    {
        if (segment.read)
        {
            segment.data = in.bytes();
            segment.data.resize(segment.length);
        }
    }
    return in.good() ? 0 : -EIO;
}

int VirtualI2c::rdwr(int fd, i2c_rdwr_ioctl_data* data)
{
    Descriptor descriptor;
    if (!lookup(fd, descriptor))
    {
        return -1;
    }
    if (data == nullptr || data->nmsgs == 0 ||
        data->nmsgs > I2C_RDWR_IOCTL_MAX_MSGS)
    {
        return failWith(EINVAL);
    }
    std::vector<I2cSegment> segments;
    for (uint32_t i = 0; i < data->nmsgs; ++i)
    {
        const i2c_msg& message = data->msgs[i];
        if (message.flags & I2C_M_RD)
        {
            segments.push_back(readOf(message.addr, message.len));
        }
        else
        {
            segments.push_back(writeOf(
                message.addr,
                std::vector<uint8_t>(message.buf, message.buf + message.len)));
        }
    }
    int result = transfer(descriptor, segments);
    if (result < 0)
    {
        return failWith(-result);
    }
    for (uint32_t i = 0; i < data->nmsgs; ++i)
    {
        if (segments[i].read)
        {
            std::memcpy(data->msgs[i].buf, segments[i].data.data(),
                        data->msgs[i].len);
        }
    }
    return static_cast<int>(data->nmsgs);
}

ssize_t VirtualI2c::read(int fd, void* buffer, size_t length)
{
    Descriptor descriptor;
    if (!lookup(fd, descriptor))
    {
        return -1;
    }
    std::vector<I2cSegment> segments{
        readOf(descriptor.address, static_cast<uint16_t>(length))};
    int result = transfer(descriptor, segments);
    if (result < 0)
    {
        return failWith(-result);
    }
    std::memcpy(buffer, segments[0].data.data(), length);
    return static_cast<ssize_t>(length);
}

ssize_t VirtualI2c::write(int fd, const void* buffer, size_t length)
{
    Descriptor descriptor;
    if (!lookup(fd, descriptor))
    {
        return -1;
    }
    const auto* bytes = static_cast<const uint8_t*>(buffer);
    std::vector<I2cSegment> segments{writeOf(
        descriptor.address, std::vector<uint8_t>(bytes, bytes + length))};
    int result = transfer(descriptor, segments);
    if (result < 0)
    {
        return failWith(-result);
    }
    return static_cast<ssize_t>(length);
}

int32_t VirtualI2c::smbus(int fd, std::vector<I2cSegment>& segments)
{
    Descriptor descriptor;
    if (!lookup(fd, descriptor))
    {
        return -EBADF;
    }
    for (auto& segment : segments)
    {
        segment.address = descriptor.address;
    }
    int result = transfer(descriptor, segments);
    if (result < 0)
    {
        errno = -result;
    }
    return result;
}

int32_t VirtualI2c::smbusReadByteData(int fd, uint8_t command)
{
    std::vector<I2cSegment> segments{writeOf(0, {command}), readOf(0, 1)};
    int32_t result = smbus(fd, segments);
    return result < 0 ? result : segments[1].data[0];
}

int32_t VirtualI2c::smbusWriteByteData(int fd, uint8_t command, uint8_t value)
{
    std::vector<I2cSegment> segments{writeOf(0, {command, value})};
    return smbus(fd, segments);
}

int32_t VirtualI2c::smbusWriteByte(int fd, uint8_t value)
{
    std::vector<I2cSegment> segments{writeOf(0, {value})};
    return smbus(fd, segments);
}

int32_t VirtualI2c::smbusReadI2cBlockData(int fd, uint8_t command,
                                          uint8_t length, uint8_t* values)
{
    uint8_t count = std::min(length, smbusBlockMax);
    std::vector<I2cSegment> segments{writeOf(0, {command}), readOf(0, count)};
    int32_t result = smbus(fd, segments);
    if (result < 0)
    {
        return result;
    }
    std::memcpy(values, segments[1].data.data(), count);
    return count;
}

int32_t VirtualI2c::smbusWriteI2cBlockData(int fd, uint8_t command,
                                           uint8_t length,
                                           const uint8_t* values)
{
    uint8_t count = std::min(length, smbusBlockMax);
    std::vector<uint8_t> bytes{command};
    bytes.insert(bytes.end(), values, values + count);
    std::vector<I2cSegment> segments{writeOf(0, std::move(bytes))};
    return smbus(fd, segments);
}

} // namespace ubbsim
