#pragma once

#include "utils/platform/clock.hpp"
#include "utils/platform/dev_mem.hpp"
#include "utils/platform/file_root.hpp"
#include "utils/platform/gpio.hpp"
#include "utils/platform/i2c_dev.hpp"
#include "utils/platform/journal.hpp"
#include "utils/platform/retimer_lib.hpp"
#include "utils/platform/shell.hpp"
#include "utils/platform/zellib.hpp"

#include <erotlib/erot.hpp>
#include <filesystem>
#include <string_view>

namespace orvane::platform
{

// The seams through which the daemon reaches the machine: the one way to
// replace a dependency. One set is installed before the daemon starts and
// stays for the life of the process; tests install their fakes the same way.
struct Platform
{
    I2cDev* i2c = nullptr;
    Gpio* gpio = nullptr;
    Clock* clock = nullptr;
    Shell* shell = nullptr;
    FileRoot* files = nullptr;
    DevMem* devMem = nullptr;
    Journal* journal = nullptr;
    Zellib* zellib = nullptr;
    RetimerLib* retimer = nullptr;
    // The exchange with the eRoT, handed to the client library; null is the
    // library's own MCTP transport on the system bus.
    erot::TransportFn erot = nullptr;
};

// Replaces the whole set and returns the one it replaced. The eRoT transport
// goes to the client library only when it differs from the replaced set's,
// so that swapping another seam leaves a transport set on the library alone.
// Accessors below cost one atomic load: sets are kept for the life of the
// process, since a thread may still read the one it loaded.
Platform install(const Platform& platform);
const Platform& current();

I2cDev& i2c();
Gpio& gpio();
Clock& clock();
Shell& shell();
FileRoot& files();
DevMem& devMem();
Journal& journal();
Zellib& zellib();
RetimerLib& retimer();

// A board path under the installed file root.
std::filesystem::path path(std::string_view absolute);

// Sleep helpers on the installed clock.
void sleepSeconds(unsigned seconds);
// Whether a board path exists under the file root; an error counts as no.
bool exists(std::string_view absolute);
void sleepMilliseconds(unsigned milliseconds);
void sleepMicroseconds(unsigned microseconds);

} // namespace orvane::platform
