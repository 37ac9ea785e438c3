#include "board/gpio_lines.hpp"

#include <array>
#include <cerrno>

namespace ubbsim
{

namespace
{

struct LineWiring
{
    const char* name;
    bool boardDriven;
    int initial;
};

// PROG_B idles high through its pull-up; configuration needs a pulse.
constexpr std::array<LineWiring, 9> lineTable{{
    {"GPU_BASE_FPGA_READY", false, 0},
    {"GPU_BASE_HMC_READY", false, 0},
    {"GPU_BASE_PWR_GD", false, 0},
    {"SMC_FPGA_PROG_CTRL", false, 0},
    {"SMC_UBB_FPGA_SPI_SEL", false, 0},
    {"SMC_UBB_FLASH_AB_SEL", false, 0},
    {"UBB_FPGA_PROG_B", false, 1},
    {"GPU_BASE_PWR_EN", true, 0},
    {"HDT_DBREQ_L", true, 0},
}};

} // namespace

GpioLines::GpioLines(Timeline& timeline, Waveform& waveform,
                     const FaultBook& faults) :
    timeline(timeline),
    waveform(waveform), faults(faults)
{
    for (const LineWiring& wiring : lineTable)
    {
        Line& line = lines[wiring.name];
        line.boardDriven = wiring.boardDriven;
        line.value = wiring.initial;
        line.trace = waveform.add(wiring.name, 1, wiring.initial);
    }
}

bool GpioLines::exists(const std::string& name) const
{
    return lines.contains(name);
}

int GpioLines::request(uint64_t owner, const std::string& name, bool output,
                       int defaultValue, uint32_t& handle)
{
    auto found = lines.find(name);
    if (found == lines.end())
    {
        return -ENOENT;
    }
    ++requestCount;
    Line& line = found->second;
    if (line.holder != 0 || faults.lineBusy(name, timeline.now()))
    {
        ++busyCount;
        return -EBUSY;
    }
    if (output && line.boardDriven)
    {
        return -EPERM; // the board drives this line; the SMC only reads it
    }
    handle = nextHandle++;
    line.holder = handle;
    held[handle] = Request{owner, name, output};
    if (output)
    {
        setLevel(line, defaultValue != 0);
    }
    return 0;
}

int GpioLines::get(uint32_t handle) const
{
    auto found = held.find(handle);
    if (found == held.end())
    {
        return -EPERM;
    }
    return lines.at(found->second.line).value;
}

int GpioLines::set(uint32_t handle, int value)
{
    auto found = held.find(handle);
    if (found == held.end() || !found->second.output)
    {
        return -EPERM;
    }
    setLevel(lines.at(found->second.line), value != 0);
    return 0;
}

int GpioLines::release(uint32_t handle)
{
    if (!held.contains(handle))
    {
        return -EINVAL;
    }
    drop(handle);
    return 0;
}

void GpioLines::releaseOwner(uint64_t owner)
{
    for (auto it = held.begin(); it != held.end();)
    {
        auto next = std::next(it);
        if (it->second.owner == owner)
        {
            drop(it->first);
        }
        it = next;
    }
}

void GpioLines::releaseAll()
{
    while (!held.empty())
    {
        drop(held.begin()->first);
    }
}

void GpioLines::drop(uint32_t handle)
{
    lines.at(held.at(handle).line).holder = 0;
    held.erase(handle);
}

void GpioLines::drive(const std::string& name, int value)
{
    setLevel(lines.at(name), value != 0);
}

int GpioLines::level(const std::string& name) const
{
    return lines.at(name).value;
}

void GpioLines::onEdge(const std::string& name, std::function<void(int)> action)
{
    lines.at(name).onEdge = std::move(action);
}

std::vector<std::pair<std::string, int>> GpioLines::levels() const
{
    std::vector<std::pair<std::string, int>> all;
    for (const LineWiring& wiring : lineTable)
    {
        all.emplace_back(wiring.name, lines.at(wiring.name).value);
    }
    return all;
}

void GpioLines::setLevel(Line& line, int value)
{
    if (line.value == value)
    {
        return;
    }
    line.value = value;
    waveform.set(line.trace, timeline.now(), static_cast<uint64_t>(value));
    if (line.onEdge)
    {
        line.onEdge(value);
    }
}

} // namespace ubbsim
