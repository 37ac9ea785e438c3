#pragma once

#include "board/i2c_device.hpp"

#include <cerrno>
#include <cstdint>

namespace ubbsim
{

// The OAM mux (channel 2, 0x70): one byte selects OAM channels (1 << n).
// In reset it doesn't answer and forgets its selection.
class OamMux : public I2cDevice
{
  public:
    void setReleased(bool released);
    bool released() const
    {
        return running;
    }
    uint8_t selection() const
    {
        return channels;
    }
    // The one OAM selected, or -1 when none or several are.
    int selectedOam() const;

    int status() const override
    {
        return running ? 0 : -EREMOTEIO;
    }
    int write(const std::vector<uint8_t>& data) override;
    int read(std::vector<uint8_t>& data) override;

  private:
    bool running = false;
    uint8_t channels = 0;
};

} // namespace ubbsim
