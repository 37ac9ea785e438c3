#include "utils/platform/real_clock.hpp"

#include <cerrno>
#include <ctime>

namespace orvane::platform
{

namespace
{

class RealClock : public Clock
{
  public:
    std::chrono::steady_clock::time_point steadyNow() override
    {
        return std::chrono::steady_clock::now();
    }

    std::chrono::system_clock::time_point wallNow() override
    {
        // Not system_clock::now(): a standard library built with a 32-bit
        // time_t (Debian's armhf one) loses the time after 2038, while this
        // call is the 64-bit one in our 32-bit build.
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        return std::chrono::system_clock::time_point(
            std::chrono::duration_cast<std::chrono::system_clock::duration>(
                std::chrono::seconds(now.tv_sec) +
                std::chrono::nanoseconds(now.tv_nsec)));
    }

    void sleepFor(std::chrono::nanoseconds duration) override
    {
        sleepResuming(duration);
    }
};

} // namespace

void sleepResuming(std::chrono::nanoseconds duration)
{
    if (duration.count() <= 0)
    {
        return;
    }
    auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
    timespec request{static_cast<time_t>(seconds.count()),
                     static_cast<long>((duration - seconds).count())};
    timespec remaining{};
    while (nanosleep(&request, &remaining) == -1 && errno == EINTR)
    {
        request = remaining;
    }
}

std::unique_ptr<Clock> makeRealClock()
{
    return std::make_unique<RealClock>();
}

} // namespace orvane::platform
