#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace orvane::kernel_test
{

// One thing the kernel recorded, in its order: an I2C transfer as
// "BUS-ADDR w:BYTES r:BYTES", one word a message, with " ret=ERRNO" when
// it failed; or a value driven on a line of the board's chip as
// "NAME=VALUE".
struct TraceRecord
{
    double seconds;
    std::string text;
};

// The board's GPIO lines on the simulated chip, seen from outside the
// process that requests them.
class SimChip
{
  public:
    SimChip();                  // from the chip's configfs entry
    std::string device() const; // /dev/gpiochipN
    unsigned offset(const std::string& line) const;
    std::string lineAt(unsigned offset) const;
    // The level the line carries now, and the pull that an input sees.
    int value(const std::string& line) const;
    void pull(const std::string& line, int level) const;
    // The name of a line by the kernel's global number; empty if not ours.
    std::string lineOfGpio(unsigned number) const;

  private:
    std::string sysfsLine(const std::string& line) const;

    std::string deviceName;
    std::string chipName;
    unsigned base = 0;
    std::vector<std::string> names;
};

// The kernel's trace events of I2C transfers and GPIO values.
class KernelTrace
{
  public:
    explicit KernelTrace(const SimChip& chip); // enables the events, clears
    void clear();
    std::vector<TraceRecord> records() const; // since the last clear
    std::vector<std::string> texts() const;

  private:
    const SimChip& chip;
};

// Watches every line of the chip from the moment it is made, for the
// requests and releases that the kernel tells every watcher of: "LINE
// released", or "LINE requested by CONSUMER as output" (or input, with
// " active-low" after it when so). The kernel's own queue is short, so a
// thread drains it.
class LineWatch
{
  public:
    explicit LineWatch(const SimChip& chip);
    ~LineWatch();
    LineWatch(const LineWatch&) = delete;
    LineWatch& operator=(const LineWatch&) = delete;
    std::vector<std::string> changes(); // what arrived, drained

  private:
    const SimChip& chip;
    int fd = -1;
    std::atomic<bool> stop{false};
    std::mutex mutex;
    std::vector<std::string> seen;
    std::thread reader;
};

std::string readText(const std::string& path);
std::string readLine(const std::string& path); // the first, without '\n'
void writeText(const std::string& path, const std::string& text);

} // namespace orvane::kernel_test
