#pragma once

#include <condition_variable>
#include <mutex>

namespace orvane
{

// The one order between the component threads: RM's update waits until
// the VR update is over. Process-wide, false at start.
struct VrGate
{
    std::mutex mutex;
    std::condition_variable changed;
    bool vrFinished = false; // under `mutex`
};

VrGate& vrGate();

// Marks the VR update over and wakes the waiter; `held` proves that the
// caller holds the gate's mutex.
void FinishVr(std::unique_lock<std::mutex>& held);

} // namespace orvane
