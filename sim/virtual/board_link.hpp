#pragma once

#include "common/wire.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace ubbsim
{

// The daemon's way to the board: one socket connection per thread, so the
// daemon's threads reach the board as independently as they would reach
// the hardware. A board that went away answers nothing: the reply is empty
// and callers treat it as an I/O error.
class BoardLink
{
  public:
    explicit BoardLink(std::string socketPath);

    std::vector<uint8_t> call(const WireWriter& request);

  private:
    int connection();

    std::string socketPath;
};

} // namespace ubbsim
