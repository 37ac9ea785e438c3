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
        return std::chrono::system_clock::now();
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
