#pragma once

#include "common/sim_clock.hpp"
#include "common/wire.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace ubbsim
{

// The daemon's way to the board: a request frame in, a reply frame out. An
// empty reply means the board is gone; callers treat it as an I/O error.
class BoardPort
{
  public:
    virtual ~BoardPort() = default;

    virtual std::vector<uint8_t> call(const WireWriter& request) = 0;
};

// Over ubb-sim's socket, with one connection per thread, so the daemon's
// threads reach the board as independently as they would the hardware.
// Board time stands still while a request is on its way and back: the
// board charges what the operation costs, the machine's round trip costs
// nothing.
class BoardLink : public BoardPort
{
  public:
    BoardLink(std::string socketPath, const TimeBase& time);

    std::vector<uint8_t> call(const WireWriter& request) override;

  private:
    int connection();

    std::string socketPath;
    SimClock clock;
};

} // namespace ubbsim
