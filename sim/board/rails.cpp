#include "board/rails.hpp"

#include <chrono>

namespace ubbsim
{

using std::chrono::milliseconds;

// Soft-start times: small rails ramp in a few ms, the retimer and OAM
// supplies with their bulk capacitance take tens of ms. All stay well below
// the 100 ms that a sequence waits before it looks.
const std::array<RailWiring, railCount> railTable{{
    {"VCCINT_FPGA", RailGroup::fpga, 0x08, 0x01, 0x01, 0x80, milliseconds(3)},
    {"VCC_BRAM_FPGA", RailGroup::fpga, 0x08, 0x10, 0x03, 0x40, milliseconds(4)},
    {"VCCAUX_FPGA", RailGroup::fpga, 0x08, 0x08, 0x03, 0x80, milliseconds(5)},
    {"SYS_1V8_FPGA", RailGroup::fpga, 0x08, 0x04, 0x04, 0x01, milliseconds(6)},
    {"UTIL_3V3_FPGA", RailGroup::fpga, 0x08, 0x02, 0x04, 0x08, milliseconds(8)},
    {"0V9_AD_RT01", RailGroup::retimer, 0x0A, 0x40, 0x03, 0x04,
     milliseconds(10)},
    {"0V9_AD_RT23", RailGroup::retimer, 0x0A, 0x20, 0x03, 0x02,
     milliseconds(10)},
    {"0V9_AD_RT45", RailGroup::retimer, 0x0A, 0x08, 0x04, 0x80,
     milliseconds(11)},
    {"0V9_AD_RT67", RailGroup::retimer, 0x0A, 0x04, 0x04, 0x40,
     milliseconds(11)},
    {"1V8_RT03", RailGroup::retimer, 0x0A, 0x80, 0x03, 0x08, milliseconds(14)},
    {"1V8_RT47", RailGroup::retimer, 0x0A, 0x10, 0x03, 0x01, milliseconds(14)},
    {"1V8_RT03_K517", RailGroup::k517, 0x0B, 0x20, 0x02, 0x01,
     milliseconds(18)},
    {"1V8_RT47_K517", RailGroup::k517, 0x0B, 0x10, 0x04, 0x04,
     milliseconds(18)},
    {"P3V3_OAM_03", RailGroup::oam, 0x09, 0x04, 0x04, 0x20, milliseconds(25)},
    {"P3V3_OAM_47", RailGroup::oam, 0x09, 0x02, 0x04, 0x10, milliseconds(25)},
}};

RailSet::RailSet(Timeline& timeline, Waveform& waveform,
                 const FaultBook& faults, bool k517) :
    timeline(timeline),
    waveform(waveform), faults(faults), k517(k517)
{
    for (size_t i = 0; i < railCount; ++i)
    {
        std::string name = railTable[i].name;
        states[i].enableTrace = waveform.add("en_" + name, 1);
        states[i].goodTrace = waveform.add("pg_" + name, 1);
    }
}

bool RailSet::fitted(size_t rail) const
{
    return k517 || railTable[rail].group != RailGroup::k517;
}

void RailSet::setEnable(size_t rail, bool on)
{
    State& state = states[rail];
    if (state.enabled == on)
    {
        return;
    }
    state.enabled = on;
    waveform.set(state.enableTrace, timeline.now(), on);
    if (!fitted(rail))
    {
        return; // the pin drives nothing on this board
    }
    if (!on)
    {
        setGood(rail, false);
        return;
    }
    state.readyAt = timeline.now() + railTable[rail].delay;
    timeline.at(state.readyAt, [this, rail] { settle(rail); });
}

void RailSet::setDropped(const std::string& name, bool dropped)
{
    size_t rail = index(name);
    if (rail == railCount || !fitted(rail))
    {
        return;
    }
    states[rail].dropped = dropped;
    if (dropped)
    {
        setGood(rail, false);
    }
    else if (states[rail].enabled)
    {
        // A rail that comes back ramps up again.
        states[rail].readyAt = timeline.now() + railTable[rail].delay;
        timeline.at(states[rail].readyAt, [this, rail] { settle(rail); });
    }
}

void RailSet::recheck(const std::string& name)
{
    size_t rail = index(name);
    if (rail != railCount && fitted(rail))
    {
        settle(rail);
    }
}

void RailSet::settleAll()
{
    for (size_t rail = 0; rail < railCount; ++rail)
    {
        if (states[rail].enabled && fitted(rail))
        {
            states[rail].readyAt = timeline.now();
            settle(rail);
        }
    }
}

size_t RailSet::index(const std::string& name)
{
    for (size_t rail = 0; rail < railCount; ++rail)
    {
        if (name == railTable[rail].name)
        {
            return rail;
        }
    }
    return railCount;
}

// Power good comes only when the rail has been on for its delay, and no
// fault holds it down.
void RailSet::settle(size_t rail)
{
    const State& state = states[rail];
    bool good = state.enabled && !state.dropped &&
                timeline.now() >= state.readyAt &&
                !faults.railBlocked(railTable[rail].name, timeline.now());
    if (good)
    {
        setGood(rail, true);
    }
}

void RailSet::setGood(size_t rail, bool good)
{
    State& state = states[rail];
    if (state.good == good)
    {
        return;
    }
    state.good = good;
    waveform.set(state.goodTrace, timeline.now(), good);
    if (onGoodChange)
    {
        onGoodChange();
    }
}

bool RailSet::good(size_t rail) const
{
    return states[rail].good;
}

bool RailSet::enabled(size_t rail) const
{
    return states[rail].enabled;
}

bool RailSet::groupGood(RailGroup group) const
{
    for (size_t rail = 0; rail < railCount; ++rail)
    {
        if (railTable[rail].group == group && fitted(rail) &&
            !states[rail].good)
        {
            return false;
        }
    }
    return true;
}

bool RailSet::groupEnabled(RailGroup group) const
{
    for (size_t rail = 0; rail < railCount; ++rail)
    {
        if (railTable[rail].group == group && fitted(rail) &&
            !states[rail].enabled)
        {
            return false;
        }
    }
    return true;
}

uint8_t RailSet::statusBits(uint8_t reg) const
{
    uint8_t bits = 0xFF;
    for (size_t rail = 0; rail < railCount; ++rail)
    {
        const RailWiring& wiring = railTable[rail];
        if (wiring.goodRegister == reg && fitted(rail) && !states[rail].good)
        {
            bits &= static_cast<uint8_t>(~wiring.goodMask);
        }
    }
    return bits;
}

} // namespace ubbsim
