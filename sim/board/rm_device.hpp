#pragma once

#include "board/fault_book.hpp"
#include "board/i2c_device.hpp"
#include "board/timeline.hpp"

#include <cstdint>
#include <map>

namespace ubbsim
{

// The RM of one OAM (0x56 on its own bus): it sits on the OAM module, so
// an empty slot has none. Its registers have 16-bit offsets, high byte
// first; a write's bytes behind the offset go to consecutive registers and
// reads go on from the offset.
class RmDevice : public I2cDevice
{
  public:
    static constexpr uint16_t errorInjection = 0xF24E; // bit 0: 1 = disabled
    static constexpr uint16_t efuseState = 0xF24B;     // 0 = good

    RmDevice(int oam, const Timeline& timeline, const FaultBook& faults);

    int write(const std::vector<uint8_t>& data) override;
    int read(std::vector<uint8_t>& data) override;

    uint8_t value(uint16_t offset) const;

  private:
    int oam;
    const Timeline& timeline;
    const FaultBook& faults;
    std::map<uint16_t, uint8_t> regs;
    uint16_t offset = 0;
};

} // namespace ubbsim
