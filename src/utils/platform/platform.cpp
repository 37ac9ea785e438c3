#include "utils/platform/platform.hpp"

#include <cstdio>
#include <cstdlib>

namespace orvane::platform
{

namespace
{

Platform installed;

template <typename T>
T& need(T* seam, const char* name)
{
    if (seam == nullptr)
    {
        // A missing seam is a build mistake, never a run-time condition.
        std::fprintf(stderr, "platform seam '%s' is not installed\n", name);
        std::abort();
    }
    return *seam;
}

} // namespace

Platform install(const Platform& platform)
{
    Platform previous = installed;
    installed = platform;
    return previous;
}

const Platform& current()
{
    return installed;
}

I2cDev& i2c()
{
    return need(installed.i2c, "i2c");
}

Gpio& gpio()
{
    return need(installed.gpio, "gpio");
}

Clock& clock()
{
    return need(installed.clock, "clock");
}

Shell& shell()
{
    return need(installed.shell, "shell");
}

FileRoot& files()
{
    return need(installed.files, "files");
}

DevMem& devMem()
{
    return need(installed.devMem, "devMem");
}

Journal& journal()
{
    return need(installed.journal, "journal");
}

logging::Zellib& zellib()
{
    return need(installed.zellib, "zellib");
}

RetimerLib& retimer()
{
    return need(installed.retimer, "retimer");
}

std::filesystem::path path(std::string_view absolute)
{
    return files().resolve(absolute);
}

void sleepSeconds(unsigned seconds)
{
    clock().sleepFor(std::chrono::seconds(seconds));
}

void sleepMilliseconds(unsigned milliseconds)
{
    clock().sleepFor(std::chrono::milliseconds(milliseconds));
}

void sleepMicroseconds(unsigned microseconds)
{
    clock().sleepFor(std::chrono::microseconds(microseconds));
}

} // namespace orvane::platform
