#pragma once

#include "board/i2c_device.hpp"
#include "board/rails.hpp"

#include <array>
#include <functional>

namespace ubbsim
{

// The SMC FPGA's expander image (channel 4, 0x25): output banks 0x08-0x0B
// that switch the rails and the hotswap and reset lines, their direction
// registers 0x18-0x1B (1 = input, the power-on state), and the status
// registers 0x00-0x04 with the rails' power good bits.
class SmcExpander : public RegisterDevice
{
  public:
    static constexpr uint8_t hotswapEnable = 0x01; // bank 0x09
    static constexpr uint8_t i2cSwitchRun = 0x08;  // bank 0x09, 0 = reset
    static constexpr uint8_t ioExpanderRun = 0x02; // bank 0x0A
    static constexpr uint8_t unpluggedBit = 0x02;  // status 0x04

    SmcExpander(Timeline& timeline, Waveform& waveform, RailSet& rails);

    // The pins as driven: an output bit that its direction makes an output.
    uint8_t pins(uint8_t bank) const;
    bool hotswapEnabled() const
    {
        return pins(0x09) & hotswapEnable;
    }
    bool ioExpandersReleased() const
    {
        return pins(0x0A) & ioExpanderRun;
    }

    void setUnplugged(bool unplugged);
    bool unplugged() const
    {
        return hostUnplugged;
    }
    // Sets the banks 0x08-0x0B and their directions at once, as a
    // sequence that ran before left them.
    void preset(const std::array<uint8_t, 4>& outputs,
                const std::array<uint8_t, 4>& directions);

    // Called after the pins changed, for the lines that leave the rails.
    std::function<void()> onPinsChange;

  protected:
    uint8_t load(uint8_t reg) override;
    void store(uint8_t reg, uint8_t value) override;

  private:
    void apply();

    Timeline& timeline;
    Waveform& waveform;
    RailSet& rails;
    std::array<uint8_t, 4> output{};
    std::array<uint8_t, 4> direction{0xFF, 0xFF, 0xFF, 0xFF};
    bool hostUnplugged = false;
    Waveform::Signal unpluggedTrace;
    Waveform::Signal i2cSwitchTrace;
};

} // namespace ubbsim
