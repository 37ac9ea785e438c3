#pragma once

#include "erot/erot_state.hpp"

#include <nlohmann/json.hpp>
#include <span>
#include <string>

namespace ubbsim::erot
{

// Bytes as the state file writes them: two lower-case hex digits each.
std::string hex(std::span<const uint8_t> bytes);

// The eRoT's state as JSON, byte strings as hexadecimal text.
nlohmann::json stateToJson(const ErotState& state);
// Throws std::runtime_error naming the field that is missing or wrong.
ErotState stateFromJson(const nlohmann::json& document);

// What a saved eRoT carries into a run whose images were made afresh: its
// flash sides, persist record, anti-rollback state, trace log (followed by
// the run's own entries), reset reason, token, settings and records. Keys,
// image information and the manifest stay those of the run.
void adoptSaved(ErotState& run, const ErotState& saved);

ErotState loadState(const std::string& path);
void saveState(const ErotState& state, const std::string& path);

} // namespace ubbsim::erot
