#include "fakes/fake_clock.hpp"

namespace orvane::test
{

FakeClock::FakeClock() :
    // 2026-11-14 16:05:16 UTC: an arbitrary, recognisable moment.
    wallStart(std::chrono::system_clock::time_point(
        std::chrono::seconds(1'794'672'316)))
{}

std::chrono::steady_clock::time_point FakeClock::steadyNow()
{
    std::lock_guard lock(mutex);
    return std::chrono::steady_clock::time_point(
        std::chrono::duration_cast<std::chrono::steady_clock::duration>(
            std::chrono::hours(1) + elapsed));
}

std::chrono::system_clock::time_point FakeClock::wallNow()
{
    std::lock_guard lock(mutex);
    return wallStart +
           std::chrono::duration_cast<std::chrono::system_clock::duration>(
               elapsed);
}

void FakeClock::sleepFor(std::chrono::nanoseconds duration)
{
    std::lock_guard lock(mutex);
    recorded.push_back(duration);
    elapsed += duration;
}

void FakeClock::advance(std::chrono::nanoseconds duration)
{
    std::lock_guard lock(mutex);
    elapsed += duration;
}

void FakeClock::setWall(std::chrono::system_clock::time_point now)
{
    std::lock_guard lock(mutex);
    wallStart =
        now - std::chrono::duration_cast<std::chrono::system_clock::duration>(
                  elapsed);
}

std::vector<std::chrono::nanoseconds> FakeClock::sleeps() const
{
    std::lock_guard lock(mutex);
    return recorded;
}

} // namespace orvane::test
