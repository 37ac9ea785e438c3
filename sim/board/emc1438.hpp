#pragma once

#include "board/fault_book.hpp"
#include "board/i2c_device.hpp"
#include "board/timeline.hpp"

#include <array>

namespace ubbsim
{

// The EMC1438 temperature sensor (channel 14, 0x4C): plain registers, with
// the channel configuration at 0x3B and a few temperatures to read.
class Emc1438 : public RegisterDevice
{
  public:
    static constexpr uint8_t channelConfig = 0x3B;

    Emc1438(const Timeline& timeline, const FaultBook& faults);

  protected:
    uint8_t load(uint8_t reg) override;
    void store(uint8_t reg, uint8_t value) override;

  private:
    const Timeline& timeline;
    const FaultBook& faults;
    std::array<uint8_t, 256> regs{};
};

} // namespace ubbsim
