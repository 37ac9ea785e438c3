#include "board/module_power.hpp"

namespace ubbsim
{

ModulePower::ModulePower(Timeline& timeline, Waveform& waveform,
                         uint8_t present) :
    timeline(timeline),
    waveform(waveform), present(present),
    trace(waveform.add("module_pwr_good", 8))
{}

bool ModulePower::condition(int oam, bool hotswapGood, uint8_t hostGood) const
{
    uint8_t bit = static_cast<uint8_t>(1U << oam);
    return (present & bit) && hotswapGood && (hostGood & bit) &&
           !modules[static_cast<size_t>(oam)].lost;
}

void ModulePower::update(bool hotswapGood, uint8_t hostGood)
{
    lastHotswap = hotswapGood;
    lastHost = hostGood;
    for (int oam = 0; oam < 8; ++oam)
    {
        Module& module = modules[static_cast<size_t>(oam)];
        bool wanted = condition(oam, hotswapGood, hostGood);
        if (wanted && !module.wanted)
        {
            module.since = timeline.now();
            timeline.after(delay, [this, oam] { settle(oam); });
        }
        module.wanted = wanted;
        if (!wanted)
        {
            module.good = false;
        }
    }
    record();
}

void ModulePower::settle(int oam)
{
    Module& module = modules[static_cast<size_t>(oam)];
    if (module.wanted && timeline.now() >= module.since + delay)
    {
        module.good = true;
        record();
    }
}

void ModulePower::setLost(int oam, bool lost)
{
    if (oam < 0 || oam > 7)
    {
        return;
    }
    modules[static_cast<size_t>(oam)].lost = lost;
    update(lastHotswap, lastHost);
}

void ModulePower::powerOn(bool hotswapGood, uint8_t hostGood)
{
    update(hotswapGood, hostGood);
    for (Module& module : modules)
    {
        module.good = module.wanted;
    }
    record();
}

uint8_t ModulePower::mask() const
{
    uint8_t bits = 0;
    for (size_t oam = 0; oam < modules.size(); ++oam)
    {
        if (modules[oam].good)
        {
            bits |= static_cast<uint8_t>(1U << oam);
        }
    }
    return bits;
}

void ModulePower::record()
{
    waveform.set(trace, timeline.now(), mask());
}

} // namespace ubbsim
