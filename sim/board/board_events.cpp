#include "board/board_model.hpp"
#include "board/board_time.hpp"

namespace ubbsim
{

// What the host and the rack do, each at its board time.
void BoardModel::scheduleHost(const std::vector<HostAction>& actions)
{
    using Kind = HostAction::Kind;
    for (const HostAction& action : actions)
    {
        timeline.at(fromSeconds(action.at), [this, kind = action.kind] {
            switch (kind)
            {
                case Kind::enable:
                case Kind::disable:
                    gpio.drive("GPU_BASE_PWR_EN", kind == Kind::enable);
                    break;
                case Kind::unplug:
                case Kind::plug:
                    smcExpander.setUnplugged(kind == Kind::unplug);
                    break;
                case Kind::serverReset:
                case Kind::serverResetRelease:
                    fpga.setServerReset(kind == Kind::serverReset);
                    break;
            }
        });
    }
}

// Faults that happen at a time, and end at `until` when it is given. The
// others are asked by the devices when they matter.
void BoardModel::scheduleFaults()
{
    auto window = [this](const Fault& fault, std::function<void(bool)> set) {
        timeline.at(fromSeconds(fault.at), [set] { set(true); });
        if (fault.until)
        {
            timeline.at(fromSeconds(*fault.until), [set] { set(false); });
        }
    };
    for (const Fault& fault : faults.ofKind("railDrop"))
    {
        window(fault, [this, rail = fault.rail](bool on) {
            rails.setDropped(rail, on);
        });
    }
    for (const Fault& fault : faults.ofKind("railNoPowerGood"))
    {
        if (fault.until)
        {
            timeline.at(fromSeconds(*fault.until),
                        [this, rail = fault.rail] { rails.recheck(rail); });
        }
    }
    for (const Fault& fault : faults.ofKind("ctf"))
    {
        window(fault,
               [this, oam = fault.oam](bool on) { fpga.setCtf(oam, on); });
    }
    for (const Fault& fault : faults.ofKind("moduleGoodLost"))
    {
        window(fault,
               [this, oam = fault.oam](bool on) { modules.setLost(oam, on); });
    }
    for (const Fault& fault : faults.ofKind("sgpio"))
    {
        auto bits = static_cast<uint8_t>(fault.value);
        timeline.at(fromSeconds(fault.at),
                    [this, bits, smc = fault.fpga == "smc"] {
                        if (smc)
                        {
                            smcStatus.raiseSgpio(bits);
                        }
                        else
                        {
                            fpga.raiseSgpio(bits);
                        }
                    });
    }
}

} // namespace ubbsim
