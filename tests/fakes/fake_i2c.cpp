#include "fakes/fake_i2c.hpp"

#include <algorithm>
#include <cstdio>

namespace orvane::test
{

using Kind = I2cOp::Kind;

template <typename Body>
long FakeI2c::run(I2cOp op, std::optional<int> fd, Body&& body)
{
    std::function<void(const I2cOp&)> notify;
    int error = 0;
    {
        std::lock_guard lock(mutex);
        shortCount.reset();
        auto found = fd ? descriptors.find(*fd) : descriptors.end();
        if (fd && found == descriptors.end())
        {
            error = EBADF;
        }
        else if (fd)
        {
            // setSlave and rdwr name their own target.
            op.bus = found->second.first;
            const bool named =
                op.kind == Kind::setSlave || op.kind == Kind::rdwr;
            op.address = named ? op.address : found->second.second;
            for (I2cFault& fault : faults)
            {
                if (fault.kind == op.kind && fault.bus == op.bus &&
                    fault.address == op.address && fault.times != 0)
                {
                    fault.times -= fault.times > 0 ? 1 : 0;
                    shortCount = fault.shortCount;
                    error = shortCount ? 0 : fault.error;
                    break;
                }
            }
        }
        error = error != 0 ? error : body(op);
        if (error != 0)
        {
            // libi2c hands the errno back negated; the kernel calls give -1.
            op.result = op.kind >= Kind::smbusWriteByteData ? -error : -1;
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
    buses.insert(bus);
}

void FakeI2c::addDevice(int bus, uint8_t address, unsigned offsetBytes)
{
    std::lock_guard lock(mutex);
    buses.insert(bus);
    devices[{bus, address}].offsetBytes = offsetBytes;
}

void FakeI2c::removeDevice(int bus, uint8_t address)
{
    std::lock_guard lock(mutex);
    devices.erase({bus, address});
}

void FakeI2c::setRegisters(int bus, uint8_t address, uint16_t first,
                           const std::vector<uint8_t>& values)
{
    std::lock_guard lock(mutex);
    // A register given to a device that wasn't added brings it to life.
    buses.insert(bus);
    for (uint8_t value : values)
    {
        devices[{bus, address}].registers[first++] = value;
    }
}

uint8_t FakeI2c::registerValue(int bus, uint8_t address, uint16_t reg) const
{
    std::lock_guard lock(mutex);
    auto found = devices.find({bus, address});
    return found == devices.end() || !found->second.registers.contains(reg)
               ? 0
               : found->second.registers.at(reg);
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

std::vector<I2cOp> FakeI2c::operations(std::optional<I2cOp::Kind> kind) const
{
    std::lock_guard lock(mutex);
    std::vector<I2cOp> some = recorded;
    std::erase_if(some,
                  [kind](const I2cOp& op) { return kind && op.kind != *kind; });
    return some;
}

void FakeI2c::clearOperations()
{
    std::lock_guard lock(mutex);
    recorded.clear();
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

namespace
{

// The pointer comes from the first pointerBytes bytes, high byte first;
// the rest go to consecutive registers.
template <typename Device>
void store(Device& device, const uint8_t* bytes, size_t length,
           unsigned pointerBytes)
{
    for (size_t i = 0; i < length; ++i)
    {
        if (i < pointerBytes)
        {
            const uint16_t high = i == 0 ? 0 : device.pointer << 8;
            device.pointer = static_cast<uint16_t>(high | bytes[i]);
            continue;
        }
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

} // namespace

long FakeI2c::transfer(Kind kind, int fd, std::optional<uint16_t> start,
                       const uint8_t* in, uint8_t* out, size_t length,
                       long done)
{
    I2cOp op{kind};
    op.command = start.value_or(0);
    if (in != nullptr)
    {
        op.bytes.assign(in, in + length);
    }
    return run(op, fd, [&](I2cOp& call) {
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
        if (target != nullptr && start)
        {
            target->pointer = *start;
        }
        if (target != nullptr && in != nullptr)
        {
            store(*target, in, moving, start ? 0 : target->offsetBytes);
        }
        else if (target != nullptr && out != nullptr)
        {
            load(*target, out, moving);
            call.bytes.assign(out, out + moving);
        }
        return 0;
    });
}

int FakeI2c::open(const std::string& path, int)
{
    return static_cast<int>(run({Kind::open}, {}, [&](I2cOp& call) {
        if (std::sscanf(path.c_str(), "/dev/i2c-%d", &call.bus) != 1 ||
            !buses.contains(call.bus))
        {
            return ENOENT;
        }
        descriptors[nextFd] = {call.bus, 0};
        call.result = nextFd++;
        return 0;
    }));
}

int FakeI2c::close(int fd)
{
    return static_cast<int>(run({Kind::close}, fd, [&](I2cOp&) {
        descriptors.erase(fd);
        return 0;
    }));
}

int FakeI2c::setSlave(int fd, unsigned long address)
{
    I2cOp op{Kind::setSlave};
    op.address = static_cast<uint8_t>(address);
    // Whether anything answers there shows only at the first transfer.
    return static_cast<int>(run(op, fd, [&](I2cOp& call) {
        descriptors[fd].second = call.address;
        return 0;
    }));
}

int FakeI2c::setPec(int fd, unsigned long value)
{
    I2cOp op{Kind::setPec};
    op.command = static_cast<uint16_t>(value);
    return static_cast<int>(run(op, fd, [](I2cOp&) { return 0; }));
}

int FakeI2c::rdwr(int fd, i2c_rdwr_ioctl_data* data)
{
    if (data == nullptr || data->nmsgs == 0)
    {
        errno = EINVAL;
        return -1;
    }
    I2cOp op{Kind::rdwr};
    op.address = static_cast<uint8_t>(data->msgs[0].addr);
    return static_cast<int>(run(op, fd, [&](I2cOp& call) {
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
    return transfer(Kind::read, fd, {}, nullptr, static_cast<uint8_t*>(buffer),
                    length, static_cast<long>(length));
}

ssize_t FakeI2c::write(int fd, const void* buffer, size_t length)
{
    return transfer(Kind::write, fd, {}, static_cast<const uint8_t*>(buffer),
                    nullptr, length, static_cast<long>(length));
}

// Recorded as a one-byte block read: the daemon doesn't use it.
int32_t FakeI2c::smbusReadByteData(int fd, uint8_t command)
{
    uint8_t value = 0;
    int32_t result = smbusReadI2cBlockData(fd, command, 1, &value);
    return result == 1 ? value : result;
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
