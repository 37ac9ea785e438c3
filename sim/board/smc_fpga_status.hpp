#pragma once

#include "board/i2c_device.hpp"

#include <array>

namespace ubbsim
{

// The SMC FPGA's status slave (channel 12, 0x23): SGPIO status at 0xE0,
// cleared by writing 1s; other registers are plain.
class SmcFpgaStatus : public RegisterDevice
{
  public:
    static constexpr uint8_t sgpioRegister = 0xE0;

    void raiseSgpio(uint8_t bits)
    {
        regs[sgpioRegister] |= bits;
    }
    uint8_t sgpio() const
    {
        return regs[sgpioRegister];
    }

  protected:
    uint8_t load(uint8_t reg) override
    {
        return regs[reg];
    }
    void store(uint8_t reg, uint8_t value) override
    {
        if (reg == sgpioRegister)
        {
            regs[reg] &= static_cast<uint8_t>(~value);
            return;
        }
        regs[reg] = value;
    }

  private:
    std::array<uint8_t, 256> regs{};
};

} // namespace ubbsim
