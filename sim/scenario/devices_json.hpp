#pragma once

#include "scenario/json_reader.hpp"
#include "scenario/scenario.hpp"

#include <array>
#include <string>

namespace ubbsim
{

// The "devices" section: flashes and retimers that don't hold what the
// image tree says.
//
//   "devices": {
//     "ubbFpgaFlash": {"B": "erased"},
//     "ifwi": {"3": "tampered"},
//     "retimers": {"0x04": "tampered"},
//     "stuckRetimers": ["0x04"]
//   }
//
// Marks: tampered (one byte changed), erased (every byte 0xFF). An IFWI
// flash is named by the index of a fitted OAM, a retimer by its switch
// value. A stuck retimer keeps what it holds whatever the update script
// writes.
DeviceScenario parseDevices(const nlohmann::json& value,
                            const std::string& path,
                            const std::array<OamSlot, 8>& oams);

} // namespace ubbsim
