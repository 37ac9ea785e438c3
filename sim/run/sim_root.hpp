#pragma once

#include "scenario/scenario.hpp"

#include <string>

namespace ubbsim
{

// The external tools the daemon runs, as small scripts under the simulated
// root. Each logs its command line to /var/log/tools.log and exits with the
// status that the scenario gives for its path (0 unless said otherwise);
// the regulator update tool ends as the scenario's vrUpdate says for the
// board it is asked to update.
extern const char* const boardTools[];

// Makes the directories and tools of the simulated root, and the regulator
// configuration bundles of both image sides and the read-only image. Files
// already there (from an earlier daemon in the same run) are kept.
void prepareRoot(const std::string& root, const Scenario& scenario);

// The SMC's mount table, /proc/mounts under the simulated root, with or
// without the non-volatile log partition. Replaced whole, so that a reader
// never sees half of it.
void writeMounts(const std::string& root, bool logNvMounted);

} // namespace ubbsim
