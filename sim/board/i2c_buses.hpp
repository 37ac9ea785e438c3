#pragma once

#include "board/fault_book.hpp"
#include "board/i2c_device.hpp"
#include "board/oam_module.hpp"
#include "board/oam_mux.hpp"
#include "board/timeline.hpp"
#include "common/wire.hpp"

#include <functional>
#include <map>

namespace ubbsim
{

// The board's I2C buses: which device answers where, and the OAM mux on
// channel 2 that routes all other addresses to the one OAM it selects.
// Nothing at an address gives -ENXIO; a device that is there but doesn't
// answer gives -EREMOTEIO.
class I2cBuses
{
  public:
    struct OamSide
    {
        OamMux& mux;
        std::function<OamModule*(int oam)> module; // null: an empty slot
        std::function<bool(int oam)> powered;
    };

    I2cBuses(const Timeline& timeline, const FaultBook& faults, OamSide oams);

    void attach(int bus, uint16_t address, I2cDevice& device);
    bool exists(int bus) const;

    // The messages in order; stops at the first that fails.
    int transfer(int bus, std::vector<I2cSegment>& segments);

    // The time that the messages take on the wire at 400 kHz.
    static SimTime duration(const std::vector<I2cSegment>& segments, bool pec);

  private:
    int find(int bus, uint16_t address, I2cDevice*& device) const;
    int behindMux(uint16_t address, I2cDevice*& device) const;

    const Timeline& timeline;
    const FaultBook& faults;
    OamSide oams;
    std::map<int, std::map<uint16_t, I2cDevice*>> buses;
};

} // namespace ubbsim
