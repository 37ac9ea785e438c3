#pragma once

#include "scenario/scenario.hpp"

#include <optional>
#include <string>

namespace ubbsim
{

struct RunOptions
{
    std::string outDir;        // trail, events, state, waveform, root/
    std::string daemonProgram; // orvane-virtual
    bool echoTrail = true;
    bool sleepLedger = false;  // write the daemon's main-thread sleeps
    std::string erotStatePath; // the eRoT's state: loaded if there, saved
};

// Runs one scenario from board power-up to its end and writes the outputs.
// Returns 0 when the run itself worked, whatever the daemon did.
int runScenario(const Scenario& scenario, const RunOptions& options);

} // namespace ubbsim
