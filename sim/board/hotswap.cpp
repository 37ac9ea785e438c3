#include "board/hotswap.hpp"

namespace ubbsim
{

HotswapPower::HotswapPower(Timeline& timeline, Waveform& waveform,
                           FaultBook& faults) :
    timeline(timeline),
    waveform(waveform), faults(faults), enableTrace(waveform.add("hs_en", 1)),
    goodTrace(waveform.add("hs_pg", 1))
{}

void HotswapPower::setEnable(bool enable)
{
    if (on == enable)
    {
        return;
    }
    on = enable;
    waveform.set(enableTrace, timeline.now(), on);
    if (!on)
    {
        setGood(false);
        return;
    }
    ++enableCount;
    if (faults.takeHotswapFailure())
    {
        return;
    }
    timeline.after(delay, [this, turn = enableCount] {
        if (on && turn == enableCount)
        {
            setGood(true);
        }
    });
}

void HotswapPower::powerOn()
{
    on = true;
    ++enableCount;
    waveform.set(enableTrace, timeline.now(), true);
    setGood(true);
}

void HotswapPower::setGood(bool good)
{
    if (powerGood == good)
    {
        return;
    }
    powerGood = good;
    waveform.set(goodTrace, timeline.now(), good);
    if (onGoodChange)
    {
        onGoodChange();
    }
}

} // namespace ubbsim
