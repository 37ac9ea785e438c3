#pragma once

#include "main/boot_report.hpp"
#include "orvane/orvane_svc_state.hpp"

#include <semaphore.h>

namespace orvane
{

// Takes the Boot Critical Section and runs the whole boot: standby power,
// secure boot, then base power under the supervising loop. Returns when the
// daemon must stop sequencing ("Power Sequence Stop"); the caller then
// enters the end state. The state must outlive every thread started here.
void RunBoot(OrvaneSvcState& state, sem_t* semaphore);

// The supervising loop: base power-on attempts with a budget of three
// re-sequences, the hold of a running board, and the final report.
void RunSupervisingLoop(OrvaneSvcState& state, BootTimes& times,
                        const ComponentTimes& componentTimes,
                        std::future<bool>& copyTask);

// Sleeps one second at a time for ever; the other threads go on serving.
[[noreturn]] void EnterEndState();

} // namespace orvane
