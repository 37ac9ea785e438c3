#pragma once

#include "board/timeline.hpp"
#include "board/waveform.hpp"

#include <array>
#include <cstdint>

namespace ubbsim
{

// The OAMs' module power good: an OAM that is present, fed by the hotswap
// controllers and told host power good reports good a short delay later,
// and loses it at once when any of these goes.
class ModulePower
{
  public:
    static constexpr SimTime delay = std::chrono::milliseconds(50);

    ModulePower(Timeline& timeline, Waveform& waveform, uint8_t present);

    void update(bool hotswapGood, uint8_t hostGood);
    // A fault of one module: its power good stays down while it lasts.
    void setLost(int oam, bool lost);
    // Starts the board with every present OAM good, as `update` would leave
    // it after the delay.
    void powerOn(bool hotswapGood, uint8_t hostGood);

    uint8_t mask() const;

  private:
    struct Module
    {
        bool wanted = false;
        bool good = false;
        bool lost = false;
        SimTime since{0};
    };

    bool condition(int oam, bool hotswapGood, uint8_t hostGood) const;
    void settle(int oam);
    void record();

    Timeline& timeline;
    Waveform& waveform;
    uint8_t present;
    bool lastHotswap = false;
    uint8_t lastHost = 0;
    std::array<Module, 8> modules;
    Waveform::Signal trace;
};

} // namespace ubbsim
