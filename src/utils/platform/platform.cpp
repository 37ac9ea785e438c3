#include "utils/platform/platform.hpp"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <forward_list>
#include <mutex>

namespace orvane::platform
{

namespace
{

// Installed once before the daemon's threads start; tests swap sets while
// a service thread may still read one, so no set is ever freed and readers
// only load the pointer. The lock orders installs among themselves.
std::mutex installMutex;
std::forward_list<Platform> kept{Platform{}};
std::atomic<const Platform*> installed{&kept.front()};

const Platform& snapshot()
{
    return *installed.load(std::memory_order_acquire);
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
    std::lock_guard lock(installMutex);
    const Platform& previous = snapshot();
    if (platform.erot != previous.erot)
    {
        erot::ErotSetTransport(platform.erot);
    }
    kept.push_front(platform);
    installed.store(&kept.front(), std::memory_order_release);
    return previous;
}

const Platform& current()
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

Zellib& zellib()
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

bool exists(std::string_view absolute)
{
    std::error_code error;
    return std::filesystem::exists(path(absolute), error);
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
