#include "fakes/fake_i2c.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <string_view>

namespace orvane::test
{

namespace
{

using Kind = I2cOp::Kind;

bool isSmbus(Kind kind)
{
    switch (kind)
    {
        case Kind::smbusReadByteData:
        case Kind::smbusWriteByteData:
        case Kind::smbusWriteByte:
        case Kind::smbusReadBlock:
        case Kind::smbusWriteBlock:
            return true;
        default:
            return false;
    }
}

// libi2c hands the errno back negated; the kernel calls give -1.
template <typename Outcome>
void failWith(Outcome& outcome, int error)
{
    outcome.error = error;
    outcome.result = isSmbus(outcome.op.kind) ? -error : -1;
}

std::optional<int> busOf(std::string_view path)
{
    constexpr std::string_view prefix = "/dev/i2c-";
    if (!path.starts_with(prefix))
    {
        return std::nullopt;
    }
    path.remove_prefix(prefix.size());
    int bus = 0;
    auto [end, ec] =
        std::from_chars(path.data(), path.data() + path.size(), bus);
    if (ec != std::errc() || end != path.data() + path.size())
    {
        return std::nullopt;
    }
    return bus;
}

// The device takes its pointer from the first pointerBytes bytes, high
// byte first, and the rest into consecutive registers.
template <typename Device>
void store(Device& device, const uint8_t* bytes, size_t length,
           unsigned pointerBytes)
{
    size_t i = 0;
    if (pointerBytes > 0 && length > 0)
    {
        device.pointer = 0;
        for (; i < std::min<size_t>(pointerBytes, length); ++i)
        {
            device.pointer =
                static_cast<uint16_t>((device.pointer << 8) | bytes[i]);
        }
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

} // namespace

template <typename Body>
long FakeI2c::run(Body&& body)
{
    Outcome outcome;
    std::function<void(const I2cOp&)> notify;
    {
        std::lock_guard lock(mutex);
        outcome = body();
        outcome.op.result = outcome.result;
        recorded.push_back(outcome.op);
        notify = observer;
    }
    if (notify)
    {
        notify(outcome.op);
    }
    // Last, so that nothing the observer does disturbs the caller's errno.
    if (outcome.error != 0)
    {
        errno = outcome.error;
    }
    return outcome.result;
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

void FakeI2c::setAbsentError(int bus, uint8_t address, int error)
{
    std::lock_guard lock(mutex);
    absentErrors[{bus, address}] = error;
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
    if (found == devices.end())
    {
        return 0;
    }
    auto value = found->second.registers.find(reg);
    return value == found->second.registers.end() ? 0 : value->second;
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
    std::lock_guard lock(mutex);
    std::vector<I2cOp> some;
    std::copy_if(recorded.begin(), recorded.end(), std::back_inserter(some),
                 [kind](const I2cOp& op) { return op.kind == kind; });
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

std::optional<I2cFault> FakeI2c::takeFault(I2cOp::Kind kind, int bus,
                                           uint8_t address)
{
    for (I2cFault& fault : faults)
    {
        // An open has no address yet: its faults match on the bus alone.
        bool addressMatches =
            kind == Kind::open || !fault.address || *fault.address == address;
        if (fault.kind == kind && fault.bus == bus && addressMatches &&
            fault.times != 0)
        {
            if (fault.times > 0)
            {
                --fault.times;
            }
            return fault;
        }
    }
    return std::nullopt;
}

FakeI2c::Device* FakeI2c::device(int bus, uint8_t address)
{
    auto found = devices.find({bus, address});
    return found == devices.end() ? nullptr : &found->second;
}

int FakeI2c::absentError(int bus, uint8_t address) const
{
    auto found = absentErrors.find({bus, address});
    return found == absentErrors.end() ? ENXIO : found->second;
}

FakeI2c::Device* FakeI2c::begin(Outcome& outcome, I2cOp::Kind kind, int fd,
                                std::optional<uint8_t> target)
{
    outcome.op.kind = kind;
    auto found = descriptors.find(fd);
    if (found == descriptors.end())
    {
        failWith(outcome, EBADF);
        return nullptr;
    }
    int bus = found->second.bus;
    uint8_t address = target.value_or(found->second.address);
    outcome.op.bus = bus;
    outcome.op.address = address;
    if (auto fault = takeFault(kind, bus, address))
    {
        if (!fault->result)
        {
            failWith(outcome, fault->error);
            return nullptr;
        }
        outcome.shortCount = fault->result;
    }
    Device* answering = device(bus, address);
    if (answering == nullptr && !outcome.shortCount)
    {
        failWith(outcome, absentError(bus, address));
    }
    return answering;
}

FakeI2c::Outcome FakeI2c::doTransfer(I2cOp::Kind kind, int fd, uint16_t command,
                                     std::optional<uint16_t> start,
                                     const uint8_t* in, uint8_t* out,
                                     size_t length)
{
    Outcome outcome;
    outcome.op.command = command;
    if (in != nullptr)
    {
        outcome.op.bytes.assign(in, in + length);
    }
    Device* target = begin(outcome, kind, fd);
    if (outcome.error != 0)
    {
        return outcome;
    }
    // A short count moves only that many bytes.
    size_t moving = length;
    if (outcome.shortCount)
    {
        moving = static_cast<size_t>(std::clamp<long>(
            *outcome.shortCount, 0, static_cast<long>(length)));
    }
    outcome.result = outcome.shortCount.value_or(static_cast<long>(length));
    if (target == nullptr)
    {
        return outcome;
    }
    if (start)
    {
        target->pointer = *start;
    }
    if (in != nullptr)
    {
        store(*target, in, moving, start ? 0 : target->offsetBytes);
    }
    else
    {
        load(*target, out, moving);
        outcome.op.bytes.assign(out, out + moving);
    }
    return outcome;
}

FakeI2c::Outcome FakeI2c::doRdwr(int fd, const i2c_rdwr_ioctl_data* data)
{
    Outcome outcome;
    bool empty = data == nullptr || data->nmsgs == 0 || data->msgs == nullptr;
    std::optional<uint8_t> first;
    if (!empty)
    {
        first = static_cast<uint8_t>(data->msgs[0].addr);
    }
    begin(outcome, Kind::rdwr, fd, first);
    if (outcome.error != 0)
    {
        return outcome;
    }
    if (outcome.shortCount)
    {
        // A short count stands for the number of messages done; none ran.
        outcome.result = *outcome.shortCount;
        return outcome;
    }
    if (empty)
    {
        failWith(outcome, EINVAL);
        return outcome;
    }
    bool readSeen = false;
    for (uint32_t i = 0; i < data->nmsgs; ++i)
    {
        const i2c_msg& message = data->msgs[i];
        Device* target =
            device(outcome.op.bus, static_cast<uint8_t>(message.addr));
        if (message.addr > 0x7F || target == nullptr)
        {
            failWith(outcome,
                     message.addr > 0x7F
                         ? EINVAL
                         : absentError(outcome.op.bus,
                                       static_cast<uint8_t>(message.addr)));
            return outcome;
        }
        if ((message.flags & I2C_M_RD) != 0)
        {
            if (!readSeen)
            {
                outcome.op.command = target->pointer;
                readSeen = true;
            }
            load(*target, message.buf, message.len);
            continue;
        }
        outcome.op.bytes.insert(outcome.op.bytes.end(), message.buf,
                                message.buf + message.len);
        store(*target, message.buf, message.len, target->offsetBytes);
    }
    outcome.result = data->nmsgs;
    return outcome;
}

int FakeI2c::open(const std::string& path, int)
{
    return static_cast<int>(run([&] {
        Outcome outcome;
        outcome.op.kind = Kind::open;
        auto bus = busOf(path);
        outcome.op.bus = bus.value_or(-1);
        if (auto fault = takeFault(Kind::open, outcome.op.bus, 0))
        {
            if (!fault->result)
            {
                failWith(outcome, fault->error);
                return outcome;
            }
            outcome.result = *fault->result;
            return outcome;
        }
        if (!bus || std::find(buses.begin(), buses.end(), *bus) == buses.end())
        {
            failWith(outcome, ENOENT);
            return outcome;
        }
        int fd = nextFd++;
        descriptors[fd] = Descriptor{*bus};
        ++opens;
        outcome.result = fd;
        return outcome;
    }));
}

int FakeI2c::close(int fd)
{
    return static_cast<int>(run([&] {
        Outcome outcome;
        outcome.op.kind = Kind::close;
        auto found = descriptors.find(fd);
        if (found == descriptors.end())
        {
            failWith(outcome, EBADF);
            return outcome;
        }
        outcome.op.bus = found->second.bus;
        outcome.op.address = found->second.address;
        auto fault = takeFault(Kind::close, outcome.op.bus, outcome.op.address);
        // As on Linux, the descriptor is gone even when close reports an
        // error.
        descriptors.erase(found);
        ++closes;
        if (fault)
        {
            if (fault->result)
            {
                outcome.result = *fault->result;
            }
            else
            {
                failWith(outcome, fault->error);
            }
        }
        return outcome;
    }));
}

int FakeI2c::setSlave(int fd, unsigned long address)
{
    return static_cast<int>(run([&] {
        Outcome outcome;
        outcome.op.kind = Kind::setSlave;
        outcome.op.address = static_cast<uint8_t>(address);
        auto found = descriptors.find(fd);
        if (found == descriptors.end())
        {
            failWith(outcome, EBADF);
            return outcome;
        }
        outcome.op.bus = found->second.bus;
        if (address > 0x7F)
        {
            failWith(outcome, EINVAL);
            return outcome;
        }
        if (auto fault =
                takeFault(Kind::setSlave, outcome.op.bus, outcome.op.address))
        {
            if (!fault->result)
            {
                failWith(outcome, fault->error);
                return outcome;
            }
            outcome.result = *fault->result;
        }
        // Whether anything answers there shows only at the first transfer.
        found->second.address = outcome.op.address;
        return outcome;
    }));
}

int FakeI2c::setPec(int fd, unsigned long value)
{
    return static_cast<int>(run([&] {
        Outcome outcome;
        outcome.op.kind = Kind::setPec;
        outcome.op.command = static_cast<uint16_t>(value);
        auto found = descriptors.find(fd);
        if (found == descriptors.end())
        {
            failWith(outcome, EBADF);
            return outcome;
        }
        outcome.op.bus = found->second.bus;
        outcome.op.address = found->second.address;
        if (auto fault =
                takeFault(Kind::setPec, outcome.op.bus, outcome.op.address))
        {
            if (!fault->result)
            {
                failWith(outcome, fault->error);
                return outcome;
            }
            outcome.result = *fault->result;
        }
        found->second.pec = value != 0;
        return outcome;
    }));
}

int FakeI2c::rdwr(int fd, i2c_rdwr_ioctl_data* data)
{
    return static_cast<int>(run([&] { return doRdwr(fd, data); }));
}

ssize_t FakeI2c::read(int fd, void* buffer, size_t length)
{
    return run([&] {
        return doTransfer(Kind::read, fd, 0, std::nullopt, nullptr,
                          static_cast<uint8_t*>(buffer), length);
    });
}

ssize_t FakeI2c::write(int fd, const void* buffer, size_t length)
{
    return run([&] {
        return doTransfer(Kind::write, fd, 0, std::nullopt,
                          static_cast<const uint8_t*>(buffer), nullptr, length);
    });
}

int32_t FakeI2c::smbusReadByteData(int fd, uint8_t command)
{
    return static_cast<int32_t>(run([&] {
        uint8_t value = 0;
        Outcome outcome = doTransfer(Kind::smbusReadByteData, fd, command,
                                     command, nullptr, &value, 1);
        if (outcome.error == 0 && !outcome.shortCount)
        {
            outcome.result = value;
        }
        return outcome;
    }));
}

int32_t FakeI2c::smbusWriteByteData(int fd, uint8_t command, uint8_t value)
{
    return static_cast<int32_t>(run([&] {
        Outcome outcome = doTransfer(Kind::smbusWriteByteData, fd, command,
                                     command, &value, nullptr, 1);
        if (outcome.error == 0 && !outcome.shortCount)
        {
            outcome.result = 0;
        }
        return outcome;
    }));
}

int32_t FakeI2c::smbusWriteByte(int fd, uint8_t value)
{
    // The SMBus send byte: the byte becomes the device's pointer.
    return static_cast<int32_t>(run([&] {
        return doTransfer(Kind::smbusWriteByte, fd, value, value, nullptr,
                          nullptr, 0);
    }));
}

int32_t FakeI2c::smbusReadI2cBlockData(int fd, uint8_t command, uint8_t length,
                                       uint8_t* values)
{
    // libi2c caps a block at 32 bytes.
    size_t capped = std::min<size_t>(length, 32);
    return static_cast<int32_t>(run([&] {
        return doTransfer(Kind::smbusReadBlock, fd, command, command, nullptr,
                          values, capped);
    }));
}

int32_t FakeI2c::smbusWriteI2cBlockData(int fd, uint8_t command, uint8_t length,
                                        const uint8_t* values)
{
    size_t capped = std::min<size_t>(length, 32);
    return static_cast<int32_t>(run([&] {
        Outcome outcome = doTransfer(Kind::smbusWriteBlock, fd, command,
                                     command, values, nullptr, capped);
        if (outcome.error == 0 && !outcome.shortCount)
        {
            outcome.result = 0;
        }
        return outcome;
    }));
}

} // namespace orvane::test
