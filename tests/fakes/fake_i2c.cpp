#include "fakes/fake_i2c.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace orvane::test
{

namespace
{

using Kind = I2cOp::Kind;

// The device takes its pointer from the first pointerBytes bytes, high
// byte first, and the rest into consecutive registers.
template <typename Device>
void store(Device& device, const uint8_t* bytes, size_t length,
           unsigned pointerBytes)
{
    size_t i = 0;
    for (; i < std::min<size_t>(pointerBytes, length); ++i)
    {
        const uint16_t high = i == 0 ? 0 : device.pointer << 8;
        device.pointer = static_cast<uint16_t>(high | bytes[i]);
    }
    for (; i < length; ++i)
    {
        device.registers[device.pointer++] = bytes[i];
    }
}

template <typename Device>
void load(Device& device, uint8_t* bytes, size_t length)
{
    for (size_t i = 0; i < length; ++i)
    {
        auto found = device.registers.find(device.pointer++);
        bytes[i] = found == device.registers.end() ? 0 : found->second;
    }
}

I2cOp opOf(Kind kind, uint16_t command = 0)
{
    I2cOp op;
    op.kind = kind;
    op.command = command;
    return op;
}

} // namespace

template <typename Body>
long FakeI2c::run(I2cOp op, Body&& body)
{
    std::function<void(const I2cOp&)> notify;
    int error = 0;
    {
        std::lock_guard lock(mutex);
        error = body(op);
        if (error != 0)
        {
            // libi2c hands the errno back negated; the kernel calls give -1.
            op.result = op.kind >= Kind::smbusReadByteData ? -error : -1;
        }
        recorded.push_back(op);
        notify = observer;
    }
    if (notify)
    {
        notify(op);
    }
    // Last, so that nothing the observer does disturbs the caller's errno.
    if (error != 0)
    {
        errno = error;
    }
    return op.result;
}

void FakeI2c::addBus(int bus)
{
    std::lock_guard lock(mutex);
    if (std::find(buses.begin(), buses.end(), bus) == buses.end())
    {
        buses.push_back(bus);
    }
}

void FakeI2c::addDevice(int bus, uint8_t address, unsigned offsetBytes)
{
    addBus(bus);
    std::lock_guard lock(mutex);
    devices[{bus, address}].offsetBytes = offsetBytes;
}

void FakeI2c::removeDevice(int bus, uint8_t address)
{
    std::lock_guard lock(mutex);
    devices.erase({bus, address});
}

void FakeI2c::setRegister(int bus, uint8_t address, uint16_t reg, uint8_t value)
{
    setRegisters(bus, address, reg, {value});
}

void FakeI2c::setRegisters(int bus, uint8_t address, uint16_t first,
                           const std::vector<uint8_t>& values)
{
    addBus(bus);
    std::lock_guard lock(mutex);
    // A register given to a device that wasn't added brings it to life.
    Device& target = devices[{bus, address}];
    for (uint8_t value : values)
    {
        target.registers[first++] = value;
    }
}

uint8_t FakeI2c::registerValue(int bus, uint8_t address, uint16_t reg) const
{
    std::lock_guard lock(mutex);
    auto found = devices.find({bus, address});
    if (found == devices.end() || !found->second.registers.contains(reg))
    {
        return 0;
    }
    return found->second.registers.at(reg);
}

void FakeI2c::inject(const I2cFault& fault)
{
    std::lock_guard lock(mutex);
    faults.push_back(fault);
}

void FakeI2c::clearFaults()
{
    std::lock_guard lock(mutex);
    faults.clear();
}

void FakeI2c::setObserver(std::function<void(const I2cOp&)> newObserver)
{
    std::lock_guard lock(mutex);
    observer = std::move(newObserver);
}

std::vector<I2cOp> FakeI2c::operations() const
{
    std::lock_guard lock(mutex);
    return recorded;
}

std::vector<I2cOp> FakeI2c::operations(I2cOp::Kind kind) const
{
    std::vector<I2cOp> some = operations();
    std::erase_if(some, [kind](const I2cOp& op) { return op.kind != kind; });
    return some;
}

void FakeI2c::clearOperations()
{
    std::lock_guard lock(mutex);
    recorded.clear();
}

int FakeI2c::openCount() const
{
    std::lock_guard lock(mutex);
    return opens;
}

int FakeI2c::closeCount() const
{
    std::lock_guard lock(mutex);
    return closes;
}

int FakeI2c::openDescriptors() const
{
    std::lock_guard lock(mutex);
    return static_cast<int>(descriptors.size());
}

FakeI2c::Device* FakeI2c::device(int bus, uint8_t address)
{
    auto found = devices.find({bus, address});
    return found == devices.end() ? nullptr : &found->second;
}

int FakeI2c::begin(I2cOp& op, int fd, std::optional<uint8_t> target,
                   std::optional<long>& shortCount)
{
    auto found = descriptors.find(fd);
    if (found == descriptors.end())
    {
        return EBADF;
    }
    op.bus = found->second.bus;
    op.address = target.value_or(found->second.address);
    for (I2cFault& fault : faults)
    {
        if (fault.kind == op.kind && fault.bus == op.bus &&
            fault.address.value_or(op.address) == op.address &&
            fault.times != 0)
        {
            fault.times -= fault.times > 0 ? 1 : 0;
            if (!fault.result)
            {
                return fault.error;
            }
            shortCount = fault.result;
            break;
        }
    }
    return 0;
}

long FakeI2c::transfer(I2cOp::Kind kind, int fd, std::optional<uint16_t> start,
                       const uint8_t* in, uint8_t* out, size_t length,
                       long done)
{
    I2cOp op = opOf(kind, start.value_or(0));
    if (in != nullptr)
    {
        op.bytes.assign(in, in + length);
    }
    return run(op, [&](I2cOp& call) {
        std::optional<long> shortCount;
        if (int error = begin(call, fd, std::nullopt, shortCount))
        {
            return error;
        }
        Device* target = device(call.bus, call.address);
        if (target == nullptr && !shortCount)
        {
            return ENXIO;
        }
        // A short count moves only that many bytes.
        call.result = shortCount.value_or(done);
        const auto moving = static_cast<size_t>(
            std::clamp<long>(shortCount.value_or(static_cast<long>(length)), 0,
                             static_cast<long>(length)));
        if (target == nullptr)
        {
            return 0;
        }
        if (start)
        {
            target->pointer = *start;
        }
        if (in != nullptr)
        {
            store(*target, in, moving, start ? 0 : target->offsetBytes);
        }
        else if (out != nullptr)
        {
            load(*target, out, moving);
            call.bytes.assign(out, out + moving);
        }
        return 0;
    });
}

int FakeI2c::open(const std::string& path, int)
{
    return static_cast<int>(run(opOf(Kind::open), [&](I2cOp& call) {
        if (std::sscanf(path.c_str(), "/dev/i2c-%d", &call.bus) != 1 ||
            std::find(buses.begin(), buses.end(), call.bus) == buses.end())
        {
            return ENOENT;
        }
        descriptors[nextFd] = Descriptor{call.bus};
        ++opens;
        call.result = nextFd++;
        return 0;
    }));
}

int FakeI2c::close(int fd)
{
    return static_cast<int>(run(opOf(Kind::close), [&](I2cOp& call) {
        std::optional<long> unused;
        if (int error = begin(call, fd, std::nullopt, unused))
        {
            return error;
        }
        descriptors.erase(fd);
        ++closes;
        return 0;
    }));
}

int FakeI2c::setSlave(int fd, unsigned long address)
{
    return static_cast<int>(run(opOf(Kind::setSlave), [&](I2cOp& call) {
        std::optional<long> unused;
        // Whether anything answers there shows only at the first transfer.
        int error = begin(call, fd, static_cast<uint8_t>(address), unused);
        if (error == 0)
        {
            descriptors[fd].address = call.address;
        }
        return error;
    }));
}

int FakeI2c::setPec(int fd, unsigned long value)
{
    const I2cOp op = opOf(Kind::setPec, static_cast<uint16_t>(value));
    return static_cast<int>(run(op, [&](I2cOp& call) {
        std::optional<long> unused;
        return begin(call, fd, std::nullopt, unused);
    }));
}

int FakeI2c::rdwr(int fd, i2c_rdwr_ioctl_data* data)
{
    return static_cast<int>(run(opOf(Kind::rdwr), [&](I2cOp& call) {
        if (data == nullptr || data->nmsgs == 0)
        {
            return EINVAL;
        }
        std::optional<long> shortCount;
        const auto first = static_cast<uint8_t>(data->msgs[0].addr);
        if (int error = begin(call, fd, first, shortCount))
        {
            return error;
        }
        // A short count stands for the number of messages done; none ran.
        call.result = shortCount.value_or(data->nmsgs);
        bool readSeen = false;
        for (uint32_t i = 0; i < data->nmsgs && !shortCount; ++i)
        {
            const i2c_msg& message = data->msgs[i];
            Device* target =
                device(call.bus, static_cast<uint8_t>(message.addr));
            if (target == nullptr)
            {
                return ENXIO;
            }
            if ((message.flags & I2C_M_RD) == 0)
            {
                call.bytes.insert(call.bytes.end(), message.buf,
                                  message.buf + message.len);
                store(*target, message.buf, message.len, target->offsetBytes);
                continue;
            }
            // The offset the first read starts at.
            call.command = readSeen ? call.command : target->pointer;
            readSeen = true;
            load(*target, message.buf, message.len);
        }
        return 0;
    }));
}

ssize_t FakeI2c::read(int fd, void* buffer, size_t length)
{
    return transfer(Kind::read, fd, std::nullopt, nullptr,
                    static_cast<uint8_t*>(buffer), length,
                    static_cast<long>(length));
}

ssize_t FakeI2c::write(int fd, const void* buffer, size_t length)
{
    return transfer(Kind::write, fd, std::nullopt,
                    static_cast<const uint8_t*>(buffer), nullptr, length,
                    static_cast<long>(length));
}

int32_t FakeI2c::smbusReadByteData(int fd, uint8_t command)
{
    uint8_t value = 0;
    long result =
        transfer(Kind::smbusReadByteData, fd, command, nullptr, &value, 1, 1);
    return result == 1 ? value : static_cast<int32_t>(result);
}

int32_t FakeI2c::smbusWriteByteData(int fd, uint8_t command, uint8_t value)
{
    return static_cast<int32_t>(
        transfer(Kind::smbusWriteByteData, fd, command, &value, nullptr, 1, 0));
}

int32_t FakeI2c::smbusWriteByte(int fd, uint8_t value)
{
    // The SMBus send byte: the byte becomes the device's pointer.
    return static_cast<int32_t>(
        transfer(Kind::smbusWriteByte, fd, value, nullptr, nullptr, 0, 0));
}

// libi2c caps a block at 32 bytes.
int32_t FakeI2c::smbusReadI2cBlockData(int fd, uint8_t command, uint8_t length,
                                       uint8_t* values)
{
    const size_t capped = std::min<size_t>(length, 32);
    return static_cast<int32_t>(transfer(Kind::smbusReadBlock, fd, command,
                                         nullptr, values, capped,
                                         static_cast<long>(capped)));
}

int32_t FakeI2c::smbusWriteI2cBlockData(int fd, uint8_t command, uint8_t length,
                                        const uint8_t* values)
{
    return static_cast<int32_t>(transfer(Kind::smbusWriteBlock, fd, command,
                                         values, nullptr,
                                         std::min<size_t>(length, 32), 0));
}

} // namespace orvane::test
