#pragma once

#include "common/sim_clock.hpp"
#include "scenario/scenario.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ubbsim
{

// The scenario's faults, asked by the devices at the moment they matter.
// A fault with a window is active from `at` until `until` (for ever when
// not given).
class FaultBook
{
  public:
    explicit FaultBook(std::vector<Fault> faults);

    bool nack(int bus, int address, SimTime t) const;
    bool lineBusy(const std::string& line, SimTime t) const;
    bool railBlocked(const std::string& rail, SimTime t) const;
    std::optional<uint8_t> emcValue(SimTime t) const;
    uint8_t efuse(int oam, SimTime t) const;

    // Whether this hotswap enable, or this program pulse, is one that the
    // scenario makes fail; each call takes one from the count.
    bool takeHotswapFailure();
    bool takeFpgaTimeout();

    // The faults of one kind, for those scheduled as board events.
    std::vector<Fault> ofKind(const std::string& kind) const;

    static bool active(const Fault& fault, SimTime t);

  private:
    bool take(const std::string& kind);

    std::vector<Fault> faults;
};

} // namespace ubbsim
