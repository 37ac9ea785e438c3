#pragma once

#include "scenario/json_reader.hpp"
#include "scenario/scenario.hpp"

#include <string>

namespace ubbsim
{

// The "manualRetimer" section: an SMC that held one retimer image,
// manually updated to the board's two images.
//
//   "manualRetimer": {
//     "archived": ["Retimer_1", "Retimer_2"],
//     "stored": ["Retimer_1"],
//     "flag": true
//   }
//
// Both images are archived and none stored unless said; the flag is set
// unless said. The archives are made from the eRoT's signed images, so the
// eRoT must carry the two-image layout ("erot": {"retimers": "dual"}).
ManualRetimerUpdate parseManualRetimer(const nlohmann::json& value,
                                       const std::string& path,
                                       const ErotScenario& erot);

} // namespace ubbsim
