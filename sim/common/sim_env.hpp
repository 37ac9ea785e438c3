#pragma once

#include "common/sim_clock.hpp"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ubbsim
{

// What ubb-sim hands the daemon it starts, through the environment.
struct SimEnvironment
{
    std::string socketPath; // the board's I2C, GPIO and /dev/mem
    std::string rootDir;    // the simulated root of the file system
    std::string eventLog;   // what the logging library receives (JSON lines)
    std::string journalLog; // direct journal entries (JSON lines)
    std::string shmName;    // the Boot Critical Section's shared memory
    std::string sleepLog;   // the main thread's sleeps, when measuring
    TimeBase time;
};

// The variables as name, value pairs.
std::vector<std::pair<std::string, std::string>> toEnvironment(
    const SimEnvironment& env);

// Reads the variables; an empty optional and the reason when one is
// missing or malformed.
std::optional<SimEnvironment> readEnvironment(std::string& error);

} // namespace ubbsim
