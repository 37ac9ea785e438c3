#pragma once

#include "scenario/json_reader.hpp"
#include "scenario/scenario.hpp"

#include <string>

namespace ubbsim
{

// The "erot" section: the root of trust of the board, the signed images
// on the SMC's storage and the faults of the eRoT and its link.
//
//   "erot": {
//     "retimers": "single" | "dual",
//     "activeSide": "A" | "B", "updateOnReboot": false, "autoArb": false,
//     "health": "0x01",
//     "components": {"UBB_FPGA": {"version": "0x00010002", "svn": 2,
//                                 "minSvn": 1, "bootSide": "B",
//                                 "keyRevocation": "requested",
//                                 "svnRevocation": "none"}},
//     "images": [{"component": "IFWI", "side": "A", "mark": "tampered"}],
//     "faults": [{"kind": "lostReplies", "opcode": "0x01", "count": 3}],
//     "traceLog": [{"tag": "BPup", "data1": 0, "data2": 0, "severity": 3}]
//   }
//
// Image marks: tampered, revokedKey, unknownKey, lowSvn, missing. Fault
// kinds and their fields (optional ones in brackets; every kind also
// takes [at until count]):
//   deadLink                     lostReplies     count [opcode]
//   shortReply     [opcode]      oversizedReply  [opcode]
//   wrongLength    [opcode]      formatVersion   opcode, value
//   status         opcode, value [component]
//   secureBootFailed component [side]            missingBpr  component
ErotScenario parseErot(const nlohmann::json& value, const std::string& path,
                       Seconds end);

// Names the checks accept.
const std::vector<std::string>& erotFaultKinds();
const std::vector<std::string>& erotComponentNames();

} // namespace ubbsim
