#pragma once

#include "board/i2c_device.hpp"

#include <array>
#include <cerrno>
#include <functional>

namespace ubbsim
{

// One of the two IO expanders on channel 14 (link config 0x20, module ID
// 0x27): five ports with input 0x00-0x04, output 0x08-0x0C, direction
// 0x18-0x1C (1 = input) and the open-drain register 0x28. Held in reset it
// doesn't answer, and it leaves reset with its power-on registers.
class IoExpander : public RegisterDevice
{
  public:
    // What the outside drives on the input pins of one port.
    using Inputs = std::function<uint8_t(uint8_t port)>;

    explicit IoExpander(Inputs inputs = {});

    void setReset(bool held);
    bool inReset() const
    {
        return held;
    }

    int status() const override
    {
        return held ? -EREMOTEIO : 0;
    }

  protected:
    uint8_t load(uint8_t reg) override;
    void store(uint8_t reg, uint8_t value) override;

  private:
    void powerOn();

    Inputs inputs;
    bool held = true;
    std::array<uint8_t, 5> output{};
    std::array<uint8_t, 5> direction{};
    uint8_t openDrain = 0;
};

} // namespace ubbsim
