#include "utils/platform/platform.hpp"

#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace orvane::platform
{

namespace
{

// Installed once before the daemon's threads start; tests swap sets while
// a service thread may still read one, so every access takes the lock.
std::mutex installedMutex;
Platform installed;

Platform snapshot()
{
    std::lock_guard lock(installedMutex);
    return installed;
}

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
    std::lock_guard lock(installedMutex);
    Platform previous = installed;
    installed = platform;
    return previous;
}

Platform current()
{
    return snapshot();
}

I2cDev& i2c()
{
    return need(snapshot().i2c, "i2c");
}

Gpio& gpio()
{
    return need(snapshot().gpio, "gpio");
}

Clock& clock()
{
    return need(snapshot().clock, "clock");
}

Shell& shell()
{
    return need(snapshot().shell, "shell");
}

FileRoot& files()
{
    return need(snapshot().files, "files");
}

DevMem& devMem()
{
    return need(snapshot().devMem, "devMem");
}

Journal& journal()
{
    return need(snapshot().journal, "journal");
}

logging::Zellib& zellib()
{
    return need(snapshot().zellib, "zellib");
}

RetimerLib& retimer()
{
    return need(snapshot().retimer, "retimer");
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
