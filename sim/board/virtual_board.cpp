#include "board/virtual_board.hpp"

#include <bit>
#include <cerrno>
#include <fstream>
#include <iterator>

namespace ubbsim
{

namespace
{

using namespace std::chrono_literals;

// What the SMC's kernel spends on an operation, in board time: opening an
// I2C bus (a transfer itself takes the time of its bits on the wire), and
// the GPIO character device's calls. Finding a line by name walks every
// chip's lines.
constexpr SimTime busOpen = 10us;
constexpr SimTime lineLookup = 30us;
constexpr SimTime lineRequest = 5us;
constexpr SimTime lineAccess = 2us; // read, drive or let go of a line

} // namespace

VirtualBoard::VirtualBoard(const Scenario& scenario,
                           std::unique_ptr<BoardTime> time) :
    time(std::move(time)),
    model(scenario),
    reason(scenario.start == ResetKind::warm ? warmReset : coldReset)
{}

std::unique_lock<std::mutex> VirtualBoard::settle()
{
    std::unique_lock lock(mutex);
    model.timeline.runUntil(time->now());
    return lock;
}

template <typename Operation>
auto VirtualBoard::spending(SimTime cost, Operation operation)
{
    SimTime done{0};
    auto result = [&] {
        auto lock = settle();
        done = model.timeline.now() + cost;
        return operation();
    }();
    time->sleepUntil(done);
    return result;
}

int VirtualBoard::openBus(int bus)
{
    return spending(busOpen,
                    [&] { return model.buses.exists(bus) ? 0 : -ENOENT; });
}

int VirtualBoard::transfer(int bus, std::vector<I2cSegment>& segments, bool pec)
{
    SimTime start{0};
    SimTime end{0};
    {
        auto lock = settle();
        ++counts.i2cTransfers;
        if (!model.buses.exists(bus))
        {
            ++counts.i2cFailures;
            return -ENOENT;
        }
        // Transfers on one bus follow each other; others run alongside.
        auto& free = busFree[static_cast<size_t>(bus)];
        start = std::max(model.timeline.now(), free);
        end = start + I2cBuses::duration(segments, pec);
        free = end;
    }
    time->sleepUntil(start);
    int result = busTransfer(bus, segments, pec);
    time->sleepUntil(end);
    return result;
}

int VirtualBoard::busTransfer(int bus, std::vector<I2cSegment>& segments, bool)
{
    auto lock = settle();
    int result = model.buses.transfer(bus, segments);
    if (result < 0)
    {
        ++counts.i2cFailures;
    }
    return result;
}

bool VirtualBoard::lineExists(const std::string& name)
{
    return spending(lineLookup, [&] { return model.gpio.exists(name); });
}

int VirtualBoard::requestLine(uint64_t owner, const std::string& name,
                              const std::string&, bool output, int,
                              int defaultValue, uint32_t& handle)
{
    return spending(lineRequest, [&] {
        return model.gpio.request(owner, name, output, defaultValue, handle);
    });
}

int VirtualBoard::getLine(uint32_t handle)
{
    return spending(lineAccess, [&] { return model.gpio.get(handle); });
}

int VirtualBoard::setLine(uint32_t handle, int value)
{
    return spending(lineAccess, [&] { return model.gpio.set(handle, value); });
}

int VirtualBoard::releaseLine(uint32_t handle)
{
    return spending(lineAccess, [&] { return model.gpio.release(handle); });
}

void VirtualBoard::releaseOwner(uint64_t owner)
{
    auto lock = settle();
    model.gpio.releaseOwner(owner);
}

uint32_t VirtualBoard::resetReason()
{
    auto lock = settle();
    return reason;
}

// The SoC restarts: its lines are let go and keep their levels, and the
// board keeps its power.
void VirtualBoard::smcReset()
{
    auto lock = settle();
    reason = warmReset;
    model.gpio.releaseAll();
    model.spi.reboot();
}

int VirtualBoard::retimerEnsure(int switchValue, const std::string& path)
{
    auto lock = settle();
    if (switchValue <= 0 || switchValue > 0x80 ||
        !std::has_single_bit(static_cast<unsigned>(switchValue)))
    {
        return -EINVAL;
    }
    if (model.images.root.empty())
    {
        return -ENOENT;
    }
    std::ifstream file(model.images.root + path, std::ios::binary);
    if (!file)
    {
        return -ENOENT;
    }
    std::vector<uint8_t> image((std::istreambuf_iterator<char>(file)),
                               std::istreambuf_iterator<char>());
    const auto& held = model.images.retimers[static_cast<size_t>(
        std::countr_zero(static_cast<unsigned>(switchValue)))];
    return image == held ? 0 : 1;
}

void VirtualBoard::loadImages(DeviceImages images)
{
    auto lock = settle();
    model.images = std::move(images);
    model.spi.load(model.images);
}

int VirtualBoard::driverWrite(const std::string& file, const std::string& text)
{
    auto lock = settle();
    return model.spi.driverWrite(file, text);
}

void VirtualBoard::advance()
{
    auto lock = settle();
}

BoardStats VirtualBoard::stats()
{
    auto lock = settle();
    BoardStats now = counts;
    now.gpioRequests = model.gpio.requests();
    now.gpioBusy = model.gpio.refusals();
    return now;
}

void VirtualBoard::writeWaveform(const std::string& path)
{
    auto lock = settle();
    model.waveform.writeVcd(path);
}

std::vector<std::string> VirtualBoard::summary()
{
    auto lock = settle();
    return model.summary();
}

} // namespace ubbsim
