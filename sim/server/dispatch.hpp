#pragma once

#include "board/board.hpp"

#include <cstdint>
#include <vector>

namespace ubbsim
{

// Carries out one request frame of the daemon's backends on the board and
// gives the reply frame. `owner` names the connection that holds requests.
std::vector<uint8_t> dispatch(Board& board, const std::vector<uint8_t>& request,
                              uint64_t owner);

} // namespace ubbsim
