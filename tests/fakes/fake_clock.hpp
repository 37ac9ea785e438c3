#pragma once

#include "utils/platform/clock.hpp"

#include <chrono>
#include <mutex>
#include <vector>

namespace orvane::test
{

// A clock whose sleeps return at once and move time forward by their length.
class FakeClock : public platform::Clock
{
  public:
    FakeClock();

    std::chrono::steady_clock::time_point steadyNow() override;
    std::chrono::system_clock::time_point wallNow() override;
    void sleepFor(std::chrono::nanoseconds duration) override;

    void advance(std::chrono::nanoseconds duration);
    // The wall clock reads `now` from here on; the steady clock goes on.
    void setWall(std::chrono::system_clock::time_point now);
    std::vector<std::chrono::nanoseconds> sleeps() const;

  private:
    mutable std::mutex mutex;
    std::chrono::nanoseconds elapsed{0};
    std::chrono::system_clock::time_point wallStart;
    std::vector<std::chrono::nanoseconds> recorded;
};

} // namespace orvane::test
