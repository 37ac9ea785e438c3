#pragma once

#include "scenario/scenario.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace ubbsim
{

// The single retimer image of the earlier layout: what every retimer holds
// before a manual update to the two-image layout is applied.
std::vector<uint8_t> earlierRetimerImage();

// Leaves the storage under `root` as a manual update to the two-image
// layout does, from the pairs that the eRoT signed there: the earlier
// single image's pair on both sides, each archived image as
// <stem>_0x<id>.tar (its .ahdr and its image as .ihx) under
// /var/lib/orvane/retimer_images/, the two-image pairs only where stored
// (active side), and the flag file.
void prepareManualRetimerUpdate(const std::string& root,
                                const ManualRetimerUpdate& update,
                                uint8_t activeSide);

} // namespace ubbsim
