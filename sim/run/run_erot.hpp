#pragma once

#include "common/sim_clock.hpp"
#include "erot/erot_endpoint.hpp"
#include "neighbours/neighbours.hpp"
#include "scenario/scenario.hpp"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace ubbsim
{

// The eRoT of one run: fresh keys, the signed images of both sides on the
// simulated root, the device behind the MCTP endpoint, and its outputs:
// erot.jsonl (every exchange), erot-state.json (the state at the end) and
// erot-signing-key.pem (the key it trusts, to sign more images with).
class RunErot
{
  public:
    // `statePath`, when not empty, is loaded if it exists and written at
    // the end.
    RunErot(const Scenario& scenario, const std::filesystem::path& root,
            const std::filesystem::path& out, const SimClock& clock,
            std::string statePath);

    Neighbours::MctpHandler handler();
    erot::ErotEndpoint& endpoint()
    {
        return *link;
    }
    // Modules whose RM digest the scenario leaves at zero report that of
    // the RM image that the eRoT's active side holds.
    void fillRmDigests(Scenario& scenario) const;
    // Writes the state; the run's last step. A file that can't be written
    // is named in the summary and fails the run.
    void finish();
    bool stateSaved() const
    {
        return saveErrors.empty();
    }
    std::string summaryLine() const;

  private:
    std::filesystem::path root;
    std::filesystem::path out;
    std::string statePath;
    std::unique_ptr<erot::ErotEndpoint> link;
    std::vector<std::string> saveErrors;
};

} // namespace ubbsim
