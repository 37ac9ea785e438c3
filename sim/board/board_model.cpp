#include "board/board_model.hpp"

#include "board/topology.hpp"

namespace ubbsim
{

namespace
{

uint8_t presentMask(const Scenario& scenario)
{
    uint8_t mask = 0;
    for (size_t oam = 0; oam < scenario.oams.size(); ++oam)
    {
        if (scenario.oams[oam].present)
        {
            mask |= static_cast<uint8_t>(1U << oam);
        }
    }
    return mask;
}

} // namespace

BoardModel::BoardModel(const Scenario& scenario) :
    present(presentMask(scenario)), faults(scenario.faults),
    gpio(timeline, waveform, faults),
    rails(timeline, waveform, faults, scenario.k517),
    smcExpander(timeline, waveform, rails), hotswap(timeline, waveform, faults),
    moduleId([this](uint8_t port) {
        return port == 0x04 ? hotswap.goodLines() : uint8_t{0};
    }),
    modules(timeline, waveform, present),
    fpga({timeline, waveform, gpio, rails, faults}, present,
         [this] { return modules.mask(); }),
    emc(timeline, faults),
    buses(timeline, faults,
          {mux,
           [this](int oam) { return oams[static_cast<size_t>(oam)].get(); },
           [this](int oam) { return oamPowered(oam); }}),
    spi({gpio, fpga, present, [this](int oam) { return oamPowered(oam); }}),
    ioResetTrace(waveform.add("ioexp_rst_n", 1))
{
    for (size_t oam = 0; oam < oams.size(); ++oam)
    {
        // The RM sits on the OAM: an empty slot's bus has nobody at its
        // address.
        if (scenario.oams[oam].present)
        {
            oams[oam] = std::make_unique<OamModule>(scenario.oams[oam]);
            rms[oam] = std::make_unique<RmDevice>(static_cast<int>(oam),
                                                  timeline, faults);
        }
    }
    attachDevices();
    connect();
    scheduleHost(scenario.host);
    scheduleFaults();
    if (scenario.start == ResetKind::warm)
    {
        startWarm(scenario.baseWasOn);
    }
}

// The OAM's devices run on its standby rail: OAMs 0-3 on one, 4-7 on the
// other.
bool BoardModel::oamPowered(int oam) const
{
    return rails.good(RailSet::index(oam < 4 ? "P3V3_OAM_03" : "P3V3_OAM_47"));
}

void BoardModel::attachDevices()
{
    using namespace topology;
    buses.attach(ubbFpgaBus, ubbFpgaAddress, fpga);
    buses.attach(powerBus, smcExpanderAddress, smcExpander);
    buses.attach(smcStatusBus, smcStatusAddress, smcStatus);
    buses.attach(sensorBus, linkConfigAddress, linkConfig);
    buses.attach(sensorBus, moduleIdAddress, moduleId);
    buses.attach(sensorBus, emcAddress, emc);
    for (size_t oam = 0; oam < rms.size(); ++oam)
    {
        if (rms[oam])
        {
            buses.attach(rmBus[oam], rmAddress, *rms[oam]);
        }
    }
    for (uint8_t address : ubbHotswapAddresses)
    {
        ubbPower.push_back(
            std::make_unique<PmbusDevice>(PmbusDevice::hotswapController()));
        buses.attach(powerBus, address, *ubbPower.back());
    }
    for (uint8_t address : ubbRegulatorAddresses)
    {
        ubbPower.push_back(
            std::make_unique<PmbusDevice>(PmbusDevice::regulator()));
        buses.attach(powerBus, address, *ubbPower.back());
    }
}

void BoardModel::connect()
{
    rails.onGoodChange = [this] { fpga.railsChanged(); };
    smcExpander.onPinsChange = [this] {
        hotswap.setEnable(smcExpander.hotswapEnabled());
        bool held = !smcExpander.ioExpandersReleased();
        linkConfig.setReset(held);
        moduleId.setReset(held);
        waveform.set(ioResetTrace, timeline.now(), !held);
    };
    hotswap.onGoodChange = [this] {
        modules.update(hotswap.good(), fpga.hostPowerGood());
    };
    fpga.onOutputsChange = [this] {
        modules.update(hotswap.good(), fpga.hostPowerGood());
        mux.setReleased(fpga.muxReleased());
    };
}

} // namespace ubbsim
