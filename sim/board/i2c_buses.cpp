#include "board/i2c_buses.hpp"

#include "board/topology.hpp"

#include <cerrno>

namespace ubbsim
{

I2cBuses::I2cBuses(const Timeline& timeline, const FaultBook& faults,
                   OamSide oams) :
    timeline(timeline),
    faults(faults), oams(std::move(oams))
{
    attach(topology::oamMuxBus, topology::oamMuxAddress, this->oams.mux);
}

void I2cBuses::attach(int bus, uint16_t address, I2cDevice& device)
{
    buses[bus][address] = &device;
}

bool I2cBuses::exists(int bus) const
{
    return bus >= 0 && bus < topology::busCount;
}

int I2cBuses::behindMux(uint16_t address, I2cDevice*& device) const
{
    int oam = oams.mux.selectedOam();
    OamModule* module = oam < 0 ? nullptr : oams.module(oam);
    if (!module)
    {
        return -ENXIO;
    }
    device = module->at(address);
    if (!device)
    {
        return -ENXIO;
    }
    return oams.powered(oam) ? 0 : -EREMOTEIO;
}

int I2cBuses::find(int bus, uint16_t address, I2cDevice*& device) const
{
    auto onBus = buses.find(bus);
    if (onBus != buses.end())
    {
        auto found = onBus->second.find(address);
        if (found != onBus->second.end())
        {
            device = found->second;
            return device->status();
        }
    }
    if (bus == topology::oamMuxBus)
    {
        return behindMux(address, device);
    }
    return -ENXIO;
}

int I2cBuses::transfer(int bus, std::vector<I2cSegment>& segments)
{
    if (!exists(bus))
    {
        return -ENOENT;
    }
    for (I2cSegment& segment : segments)
    {
        I2cDevice* device = nullptr;
        int result = find(bus, segment.address, device);
        if (result == 0 && faults.nack(bus, segment.address, timeline.now()))
        {
            result = -EREMOTEIO;
        }
        if (result == 0 && segment.read)
        {
            segment.data.assign(segment.length, 0);
            result = device->read(segment.data);
        }
        else if (result == 0)
        {
            result = device->write(segment.data);
        }
        if (result < 0)
        {
            return result;
        }
    }
    return 0;
}

SimTime I2cBuses::duration(const std::vector<I2cSegment>& segments, bool pec)
{
    // Each message: a (repeated) start, the address byte and its data, nine
    // clocks a byte with the acknowledge; one stop at the end.
    int64_t bits = 1;
    for (const I2cSegment& segment : segments)
    {
        size_t bytes = segment.read ? segment.length : segment.data.size();
        bits += 1 + 9 * static_cast<int64_t>(1 + bytes);
    }
    if (pec)
    {
        bits += 9; // the checksum byte that ends the transaction
    }
    constexpr int64_t nsPerBit = 1'000'000'000 / 400'000;
    return SimTime(bits * nsPerBit);
}

} // namespace ubbsim
