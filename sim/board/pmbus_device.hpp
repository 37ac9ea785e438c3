#pragma once

#include "board/i2c_device.hpp"

#include <cstdint>
#include <map>
#include <vector>

namespace ubbsim
{

// A PMBus device: commands of one or more bytes (words low byte first).
// A write sets a command's bytes, a read returns them from the last
// command; CLEAR_FAULTS, a send byte, clears the status commands.
class PmbusDevice : public I2cDevice
{
  public:
    using Commands = std::map<uint8_t, std::vector<uint8_t>>;

    static constexpr uint8_t page = 0x00;
    static constexpr uint8_t clearFaults = 0x03;
    static constexpr uint8_t statusByte = 0x78;
    static constexpr uint8_t statusWord = 0x79;

    // A regulator with readings and a status word showing a past fault.
    static Commands regulator();
    // A hot-swap controller, with its SOA limit (0xD1) and sense value
    // registers (0xD3, 0xD5).
    static Commands hotswapController();

    explicit PmbusDevice(Commands commands);

    int write(const std::vector<uint8_t>& data) override;
    int read(std::vector<uint8_t>& data) override;

    const std::vector<uint8_t>& command(uint8_t code) const;
    uint64_t faultClears() const
    {
        return clears;
    }

  private:
    Commands commands;
    uint8_t selected = 0;
    uint64_t clears = 0;
};

} // namespace ubbsim
