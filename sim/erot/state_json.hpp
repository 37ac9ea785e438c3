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
// flash sides, persist record, anti-rollback state, boot partition
// records, revocations, what it measured of each side that still holds the
// same image, trace log (the run's own entries follow, stamped later),
// reset reason, token, settings and records. Keys, image information and
// the manifest stay those of the run.
void adoptSaved(ErotState& run, const ErotState& saved);

ErotState loadState(const std::string& path);
// Replaces the file whole or not at all; throws std::runtime_error naming
// the file when it can't.
void saveState(const ErotState& state, const std::string& path);

} // namespace ubbsim::erot
