#pragma once

#include "scenario/json_reader.hpp"
#include "scenario/scenario.hpp"

#include <string>

namespace ubbsim
{

// The "firmwareCopy" section: the inactive side before the copy.
//
//   "firmwareCopy": {
//     "copyCompleted": false,
//     "inactiveDiffers": ["fwbundle.ahdr", "rm.bin"],
//     "inactiveOnly": ["retimer-1.bin"],
//     "backupFlashDiffers": true,
//     "eraseFails": "smc_ahdr_update"
//   }
//
// A differing file must be one the image tree holds; an inactive-only one
// a retimer file that the eRoT's layout doesn't carry.
FirmwareCopyScenario parseFirmwareCopy(const nlohmann::json& value,
                                       const std::string& path,
                                       const ErotScenario& erot);

} // namespace ubbsim
