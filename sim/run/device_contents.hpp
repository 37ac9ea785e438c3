#pragma once

#include "board/device_images.hpp"
#include "erot/erot_state.hpp"
#include "scenario/scenario.hpp"

#include <string>

namespace ubbsim
{

// What the board's flashes and retimers hold when the run starts: the
// image that the eRoT signed for the side each component runs from (the
// UBB FPGA's two flashes one side each), as it was programmed before any
// mark spoilt a file, then changed as the scenario's "devices" say.
DeviceImages deviceContents(const Scenario& scenario,
                            const erot::ErotState& state,
                            const std::string& root);

} // namespace ubbsim
