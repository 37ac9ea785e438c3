#pragma once

#include "common/sim_clock.hpp"
#include "erot/erot_device.hpp"
#include "erot/erot_scenario.hpp"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace ubbsim::erot
{

// The faults of a scenario's eRoT as they strike exchange by exchange:
// each holds in its time window and, with a count, for that many of the
// exchanges it matches.
class LinkFaults
{
  public:
    explicit LinkFaults(std::vector<ErotFault> faults);

    // The faults that strike this exchange, each counted as used.
    std::vector<const ErotFault*> strike(SimTime now,
                                         std::span<const uint8_t> request);
    // What the device reports differently for those faults.
    static Reporting reporting(const std::vector<const ErotFault*>& struck);

  private:
    struct Armed
    {
        ErotFault fault;
        int remaining; // -1: no limit
    };
    static bool matches(const ErotFault& fault, SimTime now,
                        std::span<const uint8_t> request);

    std::vector<Armed> armed;
};

// The first struck fault of a kind, or null.
const ErotFault* findKind(const std::vector<const ErotFault*>& struck,
                          const std::string& kind);

} // namespace ubbsim::erot
