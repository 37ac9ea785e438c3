#include "secure-boot/components/vr_gate.hpp"

namespace orvane
{

VrGate& vrGate()
{
    static VrGate gate;
    return gate;
}

void FinishVr(std::unique_lock<std::mutex>&)
{
    vrGate().vrFinished = true;
    vrGate().changed.notify_all();
}

} // namespace orvane
