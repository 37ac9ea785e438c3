#pragma once

#include "common/sim_clock.hpp"

#include <memory>

namespace ubbsim
{

// Where the board takes its time from: the run's clock, or a clock that a
// test moves by hand.
class BoardTime
{
  public:
    virtual ~BoardTime() = default;

    virtual SimTime now() const = 0;
    // Returns once board time has reached `at`: the caller is busy on the
    // board until then. The run's clock and a test's clock both move on to
    // `at` at once rather than wait for it. Never called with the board
    // lock held.
    virtual void sleepUntil(SimTime at) const = 0;
};

std::unique_ptr<BoardTime> clockTime(const SimClock& clock);

// Board time from scenario seconds.
SimTime fromSeconds(double seconds);

} // namespace ubbsim
