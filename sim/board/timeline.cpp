#include "board/timeline.hpp"

namespace ubbsim
{

void Timeline::at(SimTime when, Action action)
{
    // Something due in the past still runs, but never before what already
    // happened.
    queue.emplace(std::max(when, current), std::move(action));
}

void Timeline::runUntil(SimTime until)
{
    while (!queue.empty() && queue.begin()->first <= until)
    {
        auto node = queue.extract(queue.begin());
        current = node.key();
        node.mapped()();
    }
    current = std::max(current, until);
}

} // namespace ubbsim
