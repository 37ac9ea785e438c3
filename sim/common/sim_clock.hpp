#pragma once

#include <chrono>
#include <cstdint>

namespace ubbsim
{

// Board time: nanoseconds since the start of the run.
using SimTime = std::chrono::nanoseconds;

// What both processes of a run agree on: board time runs `speed` times as
// fast as the machine's monotonic clock from `monoStartNs` on.
struct TimeBase
{
    int64_t monoStartNs = 0;
    double speed = 1.0;
    int64_t wallStartNs = 0; // the time of day that board time 0 shows
};

class SimClock
{
  public:
    explicit SimClock(const TimeBase& base);

    // A base that starts now.
    static TimeBase startNow(double speed, int64_t wallStartNs);

    SimTime now() const;
    std::chrono::system_clock::time_point wallAt(SimTime at) const;
    // The machine time that a board duration takes.
    std::chrono::nanoseconds realFor(SimTime duration) const;
    // Sleeps a board duration, resuming after signals.
    void sleepFor(SimTime duration) const;
    void sleepUntil(SimTime at) const;
    const TimeBase& base() const
    {
        return timeBase;
    }

  private:
    TimeBase timeBase;
};

int64_t monotonicNs();

} // namespace ubbsim
