#include "virtual/bus_calls.hpp"

#include <systemd/sd-bus.h>

#include <atomic>

extern "C" int __real_sd_bus_call(sd_bus* bus, sd_bus_message* message,
                                  uint64_t timeoutUs, sd_bus_error* error,
                                  sd_bus_message** reply);

namespace ubbsim
{

namespace
{

using namespace std::chrono_literals;

// A method call and its reply through the bus daemon, on the SMC.
constexpr SimTime methodCall = 1ms;

std::atomic<const SimClock*> busClock{nullptr};

} // namespace

void chargeBusCalls(const SimClock& clock)
{
    busClock = &clock;
}

} // namespace ubbsim

// The machine's round trip through the bus daemon (and a neighbour that
// the run serves) would otherwise count at the run's speed.
extern "C" int __wrap_sd_bus_call(sd_bus* bus, sd_bus_message* message,
                                  uint64_t timeoutUs, sd_bus_error* error,
                                  sd_bus_message** reply)
{
    const ubbsim::SimClock* clock = ubbsim::busClock.load();
    if (clock == nullptr)
    {
        return __real_sd_bus_call(bus, message, timeoutUs, error, reply);
    }
    ubbsim::SimClock::Hold hold(*clock);
    int result = __real_sd_bus_call(bus, message, timeoutUs, error, reply);
    clock->advanceTo(clock->now() + ubbsim::methodCall);
    return result;
}
