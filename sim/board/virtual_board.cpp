#include "board/virtual_board.hpp"

#include <bit>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <optional>

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
    reason(scenario.start == ResetKind::warm ? warmReset : coldReset),
    stuckRetimers(scenario.devices.stuckRetimers)
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

namespace
{

// The contents of a file under the SMC's root; none when it can't be read.
std::optional<std::vector<uint8_t>> readBoardFile(const DeviceImages& images,
                                                  const std::string& path)
{
    if (images.root.empty())
    {
        return std::nullopt;
    }
    std::ifstream file(images.root + path, std::ios::binary);
    if (!file)
    {
        return std::nullopt;
    }
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(file)),
                                std::istreambuf_iterator<char>());
}

// "0x66" and the like; none for anything else.
std::optional<unsigned> readMux(const std::string& text)
{
    if (text.size() < 3 || text.size() > 4 || text.rfind("0x", 0) != 0 ||
        text.find_first_not_of("0123456789abcdefABCDEF", 2) !=
            std::string::npos)
    {
        return std::nullopt;
    }
    return static_cast<unsigned>(std::stoul(text.substr(2), nullptr, 16));
}

} // namespace

int VirtualBoard::toolRun(const std::string& tool,
                          const std::vector<std::string>& arguments)
{
    auto lock = settle();
    if (arguments.empty())
    {
        return -EINVAL;
    }
    auto image = readBoardFile(model.images, arguments[0]);
    if (!image)
    {
        return -ENOENT;
    }
    if (tool == "/usr/sbin/retimer-update-secureboot.sh")
    {
        // The mux selects the switch positions that the script writes.
        auto mux = arguments.size() == 3 ? readMux(arguments[2]) : std::nullopt;
        if (!mux)
        {
            return -EINVAL;
        }
        for (size_t bit = 0; bit < model.images.retimers.size(); ++bit)
        {
            if ((*mux >> bit & 1) != 0 && stuckRetimers.count(1 << bit) == 0)
            {
                model.images.retimers[bit] = *image;
            }
        }
        return 0;
    }
    if (tool == "/usr/sbin/ifwi-update.sh")
    {
        for (size_t oam = 0; oam < model.images.ifwiFlash.size(); ++oam)
        {
            if ((model.present >> oam & 1) != 0)
            {
                model.images.ifwiFlash[oam] = *image;
            }
        }
        return 0;
    }
    if (tool == "/usr/bin/zel-rm")
    {
        rmImages.fill(*image);
        return 0;
    }
    if (tool == "/usr/sbin/ubb-fpga-update.sh")
    {
        if (arguments.size() < 2 || arguments.size() > 3 ||
            (arguments[1] != "A" && arguments[1] != "B"))
        {
            return -EINVAL;
        }
        model.images.ubbFpgaFlash[arguments[1] == "A" ? 0 : 1] = *image;
        return 0;
    }
    return -ENOENT;
}

std::optional<std::vector<uint8_t>> VirtualBoard::rmImage(int oam)
{
    auto lock = settle();
    if (oam < 0 || oam >= static_cast<int>(rmImages.size()))
    {
        return std::nullopt;
    }
    return rmImages[static_cast<size_t>(oam)];
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
