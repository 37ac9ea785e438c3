#pragma once

#include "erot/erot_state.hpp"
#include "scenario/scenario.hpp"

#include <cstdint>
#include <string>

namespace ubbsim
{

// The SMC's flash partitions are as large as its image: 86272 blocks of 512
// bytes. They are sparse files, so that a board costs little disk until the
// daemon dumps them.
constexpr uintmax_t smcImageBytes = 86272ULL * 512;

// Puts the running side's SMC image into the running flash (mtd0) and the
// other side's into the backup one, older when the scenario says so; then
// makes the inactive side of the image tree what the scenario says.
void prepareInactiveSide(const std::string& root, const Scenario& scenario,
                         const erot::ErotState& erot);

// The body of flash_eraseall: fills the partition given by its /dev/mtd/
// name with 0xFF, or fails for the one the scenario names.
std::string flashEraseScript(const Scenario& scenario);

} // namespace ubbsim
