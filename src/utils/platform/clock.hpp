#pragma once

#include <chrono>

namespace orvane::platform
{

class Clock
{
  public:
    virtual ~Clock() = default;

    virtual std::chrono::steady_clock::time_point steadyNow() = 0;
    virtual std::chrono::system_clock::time_point wallNow() = 0;
    // Sleeps the whole duration; an interrupted sleep goes on with the rest.
    virtual void sleepFor(std::chrono::nanoseconds duration) = 0;
};

} // namespace orvane::platform
