#include "board/board_time.hpp"

#include <cmath>

namespace ubbsim
{

namespace
{

class ClockTime final : public BoardTime
{
  public:
    explicit ClockTime(const SimClock& clock) : clock(clock)
    {}

    SimTime now() const override
    {
        return clock.now();
    }

    void sleepUntil(SimTime at) const override
    {
        clock.advanceTo(at);
    }

  private:
    SimClock clock; // a copy: the board may outlive the caller's clock
};

} // namespace

std::unique_ptr<BoardTime> clockTime(const SimClock& clock)
{
    return std::make_unique<ClockTime>(clock);
}

SimTime fromSeconds(double seconds)
{
    return SimTime(static_cast<int64_t>(std::llround(seconds * 1e9)));
}

} // namespace ubbsim
