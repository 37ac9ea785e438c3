#include "board/oam_module.hpp"

#include "board/topology.hpp"

namespace ubbsim
{

OamModule::OamModule(const OamSlot& slot) : converter(slot.dacValue)
{
    // An older bill of materials puts the IBC at an alternate address.
    uint8_t ibc = slot.ibcAddress.value_or(topology::defaultIbcAddress);
    power[ibc] = std::make_unique<PmbusDevice>(PmbusDevice::regulator());
    power[topology::oamHotswapAddress] =
        std::make_unique<PmbusDevice>(PmbusDevice::hotswapController());
    for (uint8_t address : topology::oamRegulatorAddresses)
    {
        power[address] =
            std::make_unique<PmbusDevice>(PmbusDevice::regulator());
    }
}

I2cDevice* OamModule::at(uint16_t address)
{
    if (address == topology::dacAddress)
    {
        return &converter;
    }
    auto found = power.find(address);
    return found == power.end() ? nullptr : found->second.get();
}

} // namespace ubbsim
