#pragma once

#include "common/sim_clock.hpp"

#include <functional>
#include <map>

namespace ubbsim
{

// What is due on the board at a given time: rail edges, host actions, timed
// faults. Actions of one time run in the order they were scheduled.
class Timeline
{
  public:
    using Action = std::function<void()>;

    // The time that the running action (or the current call) happens at.
    SimTime now() const
    {
        return current;
    }

    void at(SimTime when, Action action);
    void after(SimTime delay, Action action)
    {
        at(current + delay, std::move(action));
    }

    // Runs every action due by `until`, each at its own time, also those
    // that the actions schedule on the way; then the time is `until`.
    void runUntil(SimTime until);

    size_t pending() const
    {
        return queue.size();
    }

  private:
    std::multimap<SimTime, Action> queue;
    SimTime current{0};
};

} // namespace ubbsim
