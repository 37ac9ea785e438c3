#pragma once

#include "board/dac.hpp"
#include "board/pmbus_device.hpp"
#include "scenario/scenario.hpp"

#include <map>
#include <memory>

namespace ubbsim
{

// The devices of one OAM that the OAM mux reaches: its DAC, its IBC, its
// regulators and its hotswap controller. They run on the OAM's standby
// rail.
class OamModule
{
  public:
    explicit OamModule(const OamSlot& slot);

    // The device at the address, or null when the OAM has none there.
    I2cDevice* at(uint16_t address);

    Dac& dac()
    {
        return converter;
    }

  private:
    Dac converter;
    std::map<uint16_t, std::unique_ptr<PmbusDevice>> power;
};

} // namespace ubbsim
