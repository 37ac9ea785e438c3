#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace ubbsim::test
{

// The outputs of one ubb-sim run.
struct SimRun
{
    int status = -1;
    std::string console; // ubb-sim's own output (summary, errors)
    std::string trail;   // the daemon's console trail
    std::vector<nlohmann::json> events;
    std::vector<nlohmann::json> journal;
    std::string dbusState;
    std::string waveform;
    std::string tools; // command lines the tools received
    std::filesystem::path outDir;

    // Log-library entries of the event log (not the non-volatile copies)
    // with this message id.
    std::vector<nlohmann::json> eventsWithId(const std::string& id) const;
    // A Power_Status property of the daemon at the end of the run, or
    // empty when it wasn't published.
    std::string powerStatus(const std::string& property) const;
    // A string property of another interface of the daemon's object
    // (the part after "xyz.openbmc_project.Orvane.").
    std::string orvaneProperty(const std::string& interface,
                               const std::string& property) const;
    // How many times the trail holds the text.
    int trailCount(const std::string& text) const;
    // A sanitizer report or runtime error of either process, or empty.
    std::string sanitizerReport() const;
    // The board time (seconds) of the first change of a VCD signal to
    // `value`, or a negative number when it never happens.
    double firstChange(const std::string& signal,
                       const std::string& value) const;
};

// Runs ubb-sim quietly with a scenario name or file and extra arguments,
// into a fresh output directory that is removed with the test binary's
// temporary directory.
SimRun runSim(const std::string& scenario,
              const std::vector<std::string>& extra = {});

// Writes a scenario file for a test and returns its path.
std::string writeScenario(const std::string& name, const nlohmann::json& body);

} // namespace ubbsim::test
