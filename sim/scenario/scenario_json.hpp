#pragma once

#include "scenario/scenario.hpp"

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

namespace ubbsim
{

// A scenario that can't be used. The message starts with the location of
// the offending field, e.g. `faults[2].rail: unknown rail "VCCINT"`.
class ScenarioError : public std::runtime_error
{
  public:
    using std::runtime_error::runtime_error;
};

// A scenario from its JSON form. Whatever the JSON leaves out takes the
// value of a healthy board: eight OAMs of one product with FRU data that
// the daemon recognises, a cold start and no faults. Unknown keys are
// refused at every level so that a typo can't pass unnoticed.
//
//   {
//     "name": "nominal", "description": "...",
//     "start": "cold" | "warm", "baseWasOn": false, "k517": true,
//     "fruValid": true,
//     "oams": {
//       "present": "all" | [0, 1, ...],
//       "product": "KV35",
//       "fru": {"productName", "hwDesign", "version", "thermal",
//               "present", "extra": {"NAME": "text"}},
//       "rmDigest": "<64 hex digits>",
//       "slots": {"3": {"product", "fru", "ibcAddress", "dacValue",
//                       "rmDigest"}}
//     },
//     "ubb": {"product": "KV35", "fru": {...}},
//     "host": [{"at": 40, "action": "enable"}],
//     "faults": [{"kind": "railNoPowerGood", "rail": "VCCINT_FPGA"}],
//     "daemon": [{"at": 80, "action": "restart"}],
//     "tools": {"/usr/share/images/rm_recovery.sh": 0},
//     "erot": {...}    (the root of trust, see erot_json.hpp)
//     "devices": {...} (flashes and retimers, see devices_json.hpp)
//     "end": 120, "speed": 10
//   }
//
// Fault kinds and their fields (optional ones in brackets):
//   railNoPowerGood rail             railDrop       rail, at
//   nack            bus [address at until]         (no address: whole bus)
//   gpioBusy        line [at until]  ctf            oam, at
//   moduleGoodLost  oam, at          hotswapNoGood  count (-1: always)
//   fpgaTimeout     count            efuse          oam [value = 0x01]
//   emcMisconfig    value            sgpio          fpga, value [at]
//
// Host actions: enable, disable, unplug, plug, serverReset,
// serverResetRelease. Daemon actions: restart, kill.
//
// Times are seconds of board time. Addresses and register values take a
// number or a "0x.." string. A FRU text given as null is a field the
// EEPROM doesn't carry.
Scenario parseScenario(const nlohmann::json& document);

// A bare name such as "nominal" loads <builtinDir>/nominal.json; anything
// with a slash or ending in ".json" is a path. Errors are prefixed with
// the file's path.
Scenario loadScenario(const std::string& nameOrPath,
                      const std::string& builtinDir);

// The names of the scenarios in `builtinDir`, sorted.
std::vector<std::string> builtinScenarioNames(const std::string& builtinDir);

// The FRU contents that a healthy module or board of `product` carries.
FruContents defaultOamFru(const std::string& product);
FruContents defaultUbbFru(const std::string& product);

// Vocabularies that scenarios are checked against.
const std::vector<std::string>& knownProducts();
const std::vector<std::string>& railNames();
const std::vector<std::string>& gpioLineNames();
const std::vector<std::string>& faultKinds();

} // namespace ubbsim
