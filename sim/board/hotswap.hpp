#pragma once

#include "board/fault_book.hpp"
#include "board/timeline.hpp"
#include "board/waveform.hpp"

#include <functional>

namespace ubbsim
{

// The hotswap controllers' power path: base power comes a delay after their
// enable goes on, and goes at once when it goes off.
class HotswapPower
{
  public:
    static constexpr SimTime delay = std::chrono::milliseconds(200);

    HotswapPower(Timeline& timeline, Waveform& waveform, FaultBook& faults);

    void setEnable(bool on);
    // Starts the board with base power already on.
    void powerOn();

    bool enabled() const
    {
        return on;
    }
    bool good() const
    {
        return powerGood;
    }
    // The four controllers' power good lines as the module ID expander
    // sees them.
    uint8_t goodLines() const
    {
        return powerGood ? 0x0F : 0x00;
    }
    uint64_t enables() const
    {
        return enableCount;
    }

    std::function<void()> onGoodChange;

  private:
    void setGood(bool good);

    Timeline& timeline;
    Waveform& waveform;
    FaultBook& faults;
    bool on = false;
    bool powerGood = false;
    uint64_t enableCount = 0; // tells a pending edge from a newer enable
    Waveform::Signal enableTrace;
    Waveform::Signal goodTrace;
};

} // namespace ubbsim
