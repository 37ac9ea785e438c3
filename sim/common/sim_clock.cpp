#include "common/sim_clock.hpp"

#include <cerrno>
#include <cmath>
#include <ctime>

namespace ubbsim
{

int64_t monotonicNs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

SimClock::SimClock(const TimeBase& base) : timeBase(base)
{
    if (!(timeBase.speed > 0))
    {
        timeBase.speed = 1.0;
    }
}

TimeBase SimClock::startNow(double speed, int64_t wallStartNs)
{
    return TimeBase{monotonicNs(), speed, wallStartNs};
}

SimTime SimClock::now() const
{
    double elapsed = static_cast<double>(monotonicNs() - timeBase.monoStartNs);
    return SimTime(static_cast<int64_t>(elapsed * timeBase.speed));
}

std::chrono::system_clock::time_point SimClock::wallAt(SimTime at) const
{
    auto wall = std::chrono::nanoseconds(timeBase.wallStartNs) + at;
    return std::chrono::system_clock::time_point(
        std::chrono::duration_cast<std::chrono::system_clock::duration>(wall));
}

std::chrono::nanoseconds SimClock::realFor(SimTime duration) const
{
    return std::chrono::nanoseconds(static_cast<int64_t>(
        std::ceil(static_cast<double>(duration.count()) / timeBase.speed)));
}

void SimClock::sleepFor(SimTime duration) const
{
    auto real = realFor(duration);
    if (real.count() <= 0)
    {
        return;
    }
    timespec request{static_cast<time_t>(real.count() / 1'000'000'000),
                     static_cast<long>(real.count() % 1'000'000'000)};
    timespec remaining{};
    while (nanosleep(&request, &remaining) == -1 && errno == EINTR)
    {
        request = remaining;
    }
}

void SimClock::sleepUntil(SimTime at) const
{
    SimTime left = at - now();
    if (left.count() > 0)
    {
        sleepFor(left);
    }
}

} // namespace ubbsim
