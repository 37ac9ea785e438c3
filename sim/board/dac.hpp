#pragma once

#include "board/i2c_device.hpp"

#include <array>
#include <cstdint>

namespace ubbsim
{

// An OAM's DAC (0x60 behind the OAM mux). Block register 0x60 reads five
// bytes, the setting in bytes 3 and 4, low byte first. Its input register
// is left-aligned: a word written to 0x60 (low byte first) reads back
// rotated right by four bits.
class Dac : public I2cDevice
{
  public:
    static constexpr uint8_t block = 0x60;

    explicit Dac(uint16_t value);

    int write(const std::vector<uint8_t>& data) override;
    int read(std::vector<uint8_t>& data) override;

    uint16_t value() const
    {
        return setting;
    }

  private:
    uint16_t setting;
    uint8_t selected = block;
};

} // namespace ubbsim
