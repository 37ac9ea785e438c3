#pragma once

#include "board/fault_book.hpp"
#include "board/timeline.hpp"
#include "board/waveform.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <string>

namespace ubbsim
{

enum class RailGroup
{
    fpga,
    retimer,
    k517,
    oam,
};

// One rail of the SMC FPGA expander image: its enable bit in a bank and its
// power good bit in a status register.
struct RailWiring
{
    const char* name;
    RailGroup group;
    uint8_t bank;
    uint8_t enableMask;
    uint8_t goodRegister;
    uint8_t goodMask;
    SimTime delay; // from enable to power good
};

inline constexpr size_t railCount = 15;
extern const std::array<RailWiring, railCount> railTable;

// The rails' state: a rail's power good follows its enable after its delay
// and drops at once when it is disabled or a fault takes it.
class RailSet
{
  public:
    RailSet(Timeline& timeline, Waveform& waveform, const FaultBook& faults,
            bool k517);

    void setEnable(size_t rail, bool on);
    // A fault that pulls a rail's power good down while it lasts.
    void setDropped(const std::string& name, bool dropped);
    // Brings every enabled rail to power good at once, for a board that
    // starts powered.
    void settleAll();
    // Looks again at a rail that a fault held back.
    void recheck(const std::string& name);

    bool good(size_t rail) const;
    bool enabled(size_t rail) const;
    bool fitted(size_t rail) const;
    static size_t index(const std::string& name);
    bool groupGood(RailGroup group) const;
    bool groupEnabled(RailGroup group) const;
    // The status register as read: the rails' bits, 1 for unused bits.
    uint8_t statusBits(uint8_t reg) const;

    // Called whenever a power good changes.
    std::function<void()> onGoodChange;

  private:
    struct State
    {
        bool enabled = false;
        bool good = false;
        bool dropped = false;
        SimTime readyAt{0};
        Waveform::Signal enableTrace = 0;
        Waveform::Signal goodTrace = 0;
    };

    void settle(size_t rail);
    void setGood(size_t rail, bool good);

    Timeline& timeline;
    Waveform& waveform;
    const FaultBook& faults;
    bool k517;
    std::array<State, railCount> states;
};

} // namespace ubbsim
