#include "board/board_model.hpp"

#include <cstdio>

namespace ubbsim
{

namespace
{

std::string hex(uint8_t value)
{
    char text[8];
    std::snprintf(text, sizeof(text), "0x%02x", value);
    return text;
}

const char* groupState(const RailSet& rails, RailGroup group)
{
    if (rails.groupGood(group) && rails.groupEnabled(group))
    {
        return "on";
    }
    bool any = false;
    for (size_t rail = 0; rail < railCount; ++rail)
    {
        any = any || (railTable[rail].group == group && rails.enabled(rail));
    }
    return any ? "partly on" : "off";
}

} // namespace

std::vector<std::string> BoardModel::summary() const
{
    std::vector<std::string> lines;
    bool k517 = rails.fitted(RailSet::index("1V8_RT03_K517"));
    lines.push_back(std::string("standby rails: FPGA ") +
                    groupState(rails, RailGroup::fpga) + ", retimer " +
                    groupState(rails, RailGroup::retimer) + ", k517 " +
                    (k517 ? groupState(rails, RailGroup::k517) : "not fitted") +
                    ", OAM " + groupState(rails, RailGroup::oam));
    lines.push_back(std::string("UBB FPGA: ") +
                    (fpga.configured() ? "configured" : "not configured") +
                    ", OAM mux " + (mux.released() ? "released" : "in reset"));
    lines.push_back(
        std::string("base: hotswap ") + (hotswap.enabled() ? "on" : "off") +
        (hotswap.good() ? " (good)" : " (no good)") + ", host power good " +
        hex(fpga.hostPowerGood()) + ", module power good " +
        hex(modules.mask()) + ", present " + hex(present));
    std::string levels = "gpio:";
    for (const auto& [name, value] : gpio.levels())
    {
        levels += " " + name + "=" + std::to_string(value);
    }
    lines.push_back(levels);
    return lines;
}

} // namespace ubbsim
