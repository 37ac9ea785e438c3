#pragma once

#include "logging/zellib.hpp"
#include "utils/platform/clock.hpp"
#include "utils/platform/dev_mem.hpp"
#include "utils/platform/file_root.hpp"
#include "utils/platform/gpio.hpp"
#include "utils/platform/i2c_dev.hpp"
#include "utils/platform/journal.hpp"
#include "utils/platform/retimer_lib.hpp"
#include "utils/platform/shell.hpp"

#include <filesystem>
#include <string_view>

namespace orvane::platform
{

// The seams through which the daemon reaches the machine. One set is
// installed before the daemon starts and stays for the life of the process.
struct Platform
{
    I2cDev* i2c = nullptr;
    Gpio* gpio = nullptr;
    Clock* clock = nullptr;
    Shell* shell = nullptr;
    FileRoot* files = nullptr;
    DevMem* devMem = nullptr;
    Journal* journal = nullptr;
    logging::Zellib* zellib = nullptr;
    RetimerLib* retimer = nullptr;
};

// Replaces the whole set and returns the one it replaced.
Platform install(const Platform& platform);
Platform current();

I2cDev& i2c();
Gpio& gpio();
Clock& clock();
Shell& shell();
FileRoot& files();
DevMem& devMem();
Journal& journal();
logging::Zellib& zellib();
RetimerLib& retimer();

// A board path under the installed file root.
std::filesystem::path path(std::string_view absolute);

// Sleep helpers on the installed clock.
void sleepSeconds(unsigned seconds);
void sleepMilliseconds(unsigned milliseconds);
void sleepMicroseconds(unsigned microseconds);

} // namespace orvane::platform
