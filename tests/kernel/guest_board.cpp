#include "guest_board.hpp"

#include "utils/platform/production.hpp"

#include <fcntl.h>
#include <linux/gpio.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <gtest/gtest.h>

namespace orvane::kernel_test
{

namespace
{

namespace fs = std::filesystem;

const std::string configDir = "/sys/kernel/config/gpio-sim/board";
const std::string traceDir = "/sys/kernel/tracing";

// "08-00" as the trace prints a buffer, to "0800".
std::string bytesOf(const std::string& details)
{
    auto open = details.find('[');
    if (open == std::string::npos)
    {
        return "";
    }
    std::string bytes = details.substr(open + 1, details.find(']') - open - 1);
    std::erase(bytes, '-');
    return bytes;
}

// A transfer under way on one adapter: its address and its messages.
struct Transfer
{
    unsigned address = 0;
    std::vector<std::string> messages;
};

} // namespace

std::string readText(const std::string& path)
{
    std::ifstream in(path);
    if (!in)
    {
        throw std::runtime_error("cannot read " + path);
    }
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string readLine(const std::string& path)
{
    std::string text = readText(path);
    return text.substr(0, text.find('\n'));
}

void writeText(const std::string& path, const std::string& text)
{
    std::ofstream out(path);
    out << text;
    out.close();
    if (!out)
    {
        throw std::runtime_error("cannot write " + path);
    }
}

SimChip::SimChip() :
    deviceName(readLine(configDir + "/dev_name")),
    chipName(readLine(configDir + "/bank0/chip_name"))
{
    int count = std::stoi(readText(configDir + "/bank0/num_lines"));
    for (int line = 0; line < count; ++line)
    {
        names.push_back(readLine(configDir + "/bank0/line" +
                                 std::to_string(line) + "/name"));
    }
    // The sysfs class names each chip by its first global number.
    for (const auto& entry : fs::directory_iterator("/sys/class/gpio"))
    {
        const fs::path label = entry.path() / "label";
        if (fs::exists(label) && readLine(label) == "board")
        {
            base = std::stoul(readText(entry.path() / "base"));
            return;
        }
    }
    throw std::runtime_error("the board's chip has no global numbers");
}

std::string SimChip::device() const
{
    return "/dev/" + chipName;
}

unsigned SimChip::offset(const std::string& line) const
{
    auto at = std::find(names.begin(), names.end(), line);
    if (at == names.end())
    {
        throw std::runtime_error("no line " + line + " on the board's chip");
    }
    return static_cast<unsigned>(at - names.begin());
}

std::string SimChip::lineAt(unsigned offset) const
{
    return offset < names.size() ? names[offset] : std::string();
}

std::string SimChip::sysfsLine(const std::string& line) const
{
    return "/sys/devices/platform/" + deviceName + "/" + chipName +
           "/sim_gpio" + std::to_string(offset(line));
}

int SimChip::value(const std::string& line) const
{
    return std::stoi(readText(sysfsLine(line) + "/value"));
}

void SimChip::pull(const std::string& line, int level) const
{
    writeText(sysfsLine(line) + "/pull", level ? "pull-up" : "pull-down");
}

std::string SimChip::lineOfGpio(unsigned number) const
{
    return number >= base ? lineAt(number - base) : std::string();
}

KernelTrace::KernelTrace(const SimChip& chip) : chip(chip)
{
    for (const char* event : {"i2c/i2c_write", "i2c/i2c_read", "i2c/i2c_reply",
                              "i2c/i2c_result", "gpio/gpio_value"})
    {
        writeText(traceDir + "/events/" + event + "/enable", "1");
    }
    clear();
}

void KernelTrace::clear()
{
    writeText(traceDir + "/trace", "");
}

std::vector<TraceRecord> KernelTrace::records() const
{
    std::vector<TraceRecord> records;
    std::map<int, Transfer> open;
    std::istringstream lines(readText(traceDir + "/trace"));
    for (std::string line; std::getline(lines, line);)
    {
        // "  task-pid  [000] .....  12.345678: i2c_write: i2c-4 #0 ..."
        auto eventEnd = line.find(": ", line.find("] "));
        if (line.empty() || line[0] == '#' || eventEnd == std::string::npos)
        {
            continue;
        }
        auto stampStart = line.rfind(' ', eventEnd - 1) + 1;
        double seconds = std::stod(line.substr(stampStart));
        auto nameEnd = line.find(": ", eventEnd + 2);
        std::string event = line.substr(eventEnd + 2, nameEnd - eventEnd - 2);
        std::string details = line.substr(nameEnd + 2);
        int bus = 0;
        unsigned index = 0;
        unsigned address = 0;
        int result = 0;
        if (event == "gpio_value")
        {
            unsigned number = 0;
            char what[4] = {};
            int value = 0;
            if (std::sscanf(details.c_str(), "%u %3s %d", &number, what,
                            &value) == 3 &&
                std::string(what) == "set" && !chip.lineOfGpio(number).empty())
            {
                records.push_back({seconds, chip.lineOfGpio(number) + "=" +
                                                std::to_string(value)});
            }
        }
        else if (event == "i2c_result" &&
                 std::sscanf(details.c_str(), "i2c-%d n=%u ret=%d", &bus,
                             &index, &result) == 3)
        {
            Transfer& transfer = open[bus];
            char head[16];
            std::snprintf(head, sizeof(head), "%d-%02x", bus, transfer.address);
            std::string text = head;
            for (const std::string& message : transfer.messages)
            {
                text += " " + message;
            }
            if (result < 0)
            {
                text += " ret=" + std::to_string(result);
            }
            records.push_back({seconds, text});
            open.erase(bus);
        }
        else if (std::sscanf(details.c_str(), "i2c-%d #%u a=%x", &bus, &index,
                             &address) == 3)
        {
            Transfer& transfer = open[bus];
            transfer.address = address;
            transfer.messages.resize(
                std::max<size_t>(transfer.messages.size(), size_t{index} + 1));
            if (event == "i2c_write")
            {
                transfer.messages[index] = "w:" + bytesOf(details);
            }
            else if (event == "i2c_read")
            {
                transfer.messages[index] = "r:";
            }
            else if (event == "i2c_reply")
            {
                transfer.messages[index] = "r:" + bytesOf(details);
            }
        }
    }
    return records;
}

std::vector<std::string> KernelTrace::texts() const
{
    std::vector<std::string> texts;
    for (const TraceRecord& record : records())
    {
        texts.push_back(record.text);
    }
    return texts;
}

LineWatch::LineWatch(const SimChip& chip) :
    chip(chip), fd(::open(chip.device().c_str(), O_RDONLY | O_CLOEXEC))
{
    if (fd < 0)
    {
        throw std::system_error(errno, std::generic_category(), chip.device());
    }
    for (unsigned offset = 0; !chip.lineAt(offset).empty(); ++offset)
    {
        gpio_v2_line_info info{};
        info.offset = offset;
        if (::ioctl(fd, GPIO_V2_GET_LINEINFO_WATCH_IOCTL, &info) < 0)
        {
            throw std::system_error(errno, std::generic_category(), "watch");
        }
    }
    reader = std::thread([this] {
        while (!stop)
        {
            pollfd ready{fd, POLLIN, 0};
            gpio_v2_line_info_changed change{};
            if (::poll(&ready, 1, 20) <= 0 ||
                ::read(fd, &change, sizeof(change)) != sizeof(change) ||
                change.event_type == GPIO_V2_LINE_CHANGED_CONFIG)
            {
                continue;
            }
            const auto flags = change.info.flags;
            std::string text = this->chip.lineAt(change.info.offset);
            if (change.event_type == GPIO_V2_LINE_CHANGED_RELEASED)
            {
                text += " released";
            }
            else
            {
                text += " requested by " + std::string(change.info.consumer) +
                        ((flags & GPIO_V2_LINE_FLAG_OUTPUT) ? " as output"
                                                            : " as input");
                if (flags & GPIO_V2_LINE_FLAG_ACTIVE_LOW)
                {
                    text += " active-low";
                }
            }
            std::lock_guard lock(mutex);
            seen.push_back(text);
        }
    });
}

LineWatch::~LineWatch()
{
    stop = true;
    reader.join();
    ::close(fd);
}

std::vector<std::string> LineWatch::changes()
{
    // What the kernel queued a moment ago is read within one poll.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    std::lock_guard lock(mutex);
    return std::exchange(seen, {});
}

} // namespace orvane::kernel_test

namespace
{

// Every check runs on the production backends, as the daemon does.
class ProductionBackends : public ::testing::Environment
{
    void SetUp() override
    {
        orvane::platform::installProduction();
    }
};

[[maybe_unused]] const auto* const production =
    ::testing::AddGlobalTestEnvironment(new ProductionBackends);

} // namespace
