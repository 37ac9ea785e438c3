#pragma once

#include "scenario/json_reader.hpp"
#include "scenario/scenario.hpp"

#include <string>
#include <vector>

namespace ubbsim
{

// The "faults" list. Each kind takes the fields it needs and refuses the
// ones it doesn't use; no time lies beyond `end`.
std::vector<Fault> parseFaults(const nlohmann::json& value,
                               const std::string& path, Seconds end);

} // namespace ubbsim
