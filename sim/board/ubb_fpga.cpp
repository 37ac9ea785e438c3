#include "board/ubb_fpga.hpp"

#include <cerrno>

namespace ubbsim
{

UbbFpga::UbbFpga(Links links, uint8_t present,
                 std::function<uint8_t()> moduleGood) :
    links(links),
    present(present), moduleGood(std::move(moduleGood)),
    hostTrace(links.waveform.add("host_pwr_good", 8)),
    perstTrace(links.waveform.add("perst", 1, 1)),
    muxTrace(links.waveform.add("oam_mux_rst_n", 1)),
    ctfTrace(links.waveform.add("oam_ctf_n", 8, 0xFF)),
    serverTrace(links.waveform.add("server_rst_n", 1, 1))
{
    links.waveform.add("oam_prsnt_n", 8, static_cast<uint8_t>(~present));
    links.gpio.onEdge("UBB_FPGA_PROG_B",
                      [this](int level) { programPin(level); });
    powerOnRegisters();
}

int UbbFpga::status() const
{
    return active && links.rails.groupGood(RailGroup::fpga) ? 0 : -EREMOTEIO;
}

void UbbFpga::powerOnRegisters()
{
    regs.fill(0x00);
    regs[0x62] = 0x01; // PERST held low
    regs[0x70] = 0x01;
}

// PROG_B low clears the image; its rising edge starts a load.
void UbbFpga::programPin(int level)
{
    if (level == 0)
    {
        programLow = true;
        ++loads;
        setActive(false);
        return;
    }
    if (programLow)
    {
        programLow = false;
        startLoad();
    }
}

void UbbFpga::startLoad()
{
    // Without power, or while the SMC holds the flash, nothing loads.
    if (!links.rails.groupGood(RailGroup::fpga) ||
        links.gpio.level("SMC_UBB_FPGA_SPI_SEL") != 0)
    {
        return;
    }
    if (links.faults.takeFpgaTimeout())
    {
        return;
    }
    links.timeline.after(loadTime, [this, load = ++loads] {
        if (load == loads && links.rails.groupGood(RailGroup::fpga))
        {
            setActive(true);
        }
    });
}

void UbbFpga::railsChanged()
{
    if (!links.rails.groupGood(RailGroup::fpga))
    {
        ++loads;
        setActive(false);
    }
}

void UbbFpga::configureNow()
{
    setActive(true);
}

// A fresh image starts from its power-on registers, and so does one that
// is gone, whose outputs fall back to their pulls.
void UbbFpga::setActive(bool on)
{
    if (active == on)
    {
        return;
    }
    active = on;
    powerOnRegisters();
    links.gpio.drive("HDT_DBREQ_L", on ? 1 : 0);
    publish();
}

uint8_t UbbFpga::load(uint8_t reg)
{
    switch (reg)
    {
        case 0x61:
            return moduleGood();
        case 0x63:
            return static_cast<uint8_t>(~present);
        case 0x70:
            return static_cast<uint8_t>((regs[reg] & 0xFE) |
                                        (serverRunning ? 1 : 0));
        case 0xC0:
            return static_cast<uint8_t>(~ctfTrips);
        case 0xE0:
            return sgpio;
        default:
            return regs[reg];
    }
}

void UbbFpga::store(uint8_t reg, uint8_t value)
{
    switch (reg)
    {
        case 0x61:
        case 0x63:
        case 0xC0:
            return; // inputs from the OAMs
        case 0xE0:
            sgpio &= static_cast<uint8_t>(~value);
            return;
        default:
            regs[reg] = value;
            publish();
    }
}

void UbbFpga::preset(uint8_t reg, uint8_t value)
{
    regs[reg] = value;
    publish();
}

void UbbFpga::setCtf(int oam, bool tripped)
{
    if (oam < 0 || oam > 7)
    {
        return;
    }
    uint8_t bit = static_cast<uint8_t>(1U << oam);
    ctfTrips = tripped ? (ctfTrips | bit) : (ctfTrips & ~bit);
    links.waveform.set(ctfTrace, links.timeline.now(),
                       static_cast<uint8_t>(~ctfTrips));
}

void UbbFpga::raiseSgpio(uint8_t bits)
{
    sgpio |= bits;
}

void UbbFpga::setServerReset(bool asserted)
{
    serverRunning = !asserted;
    links.waveform.set(serverTrace, links.timeline.now(), serverRunning);
}

void UbbFpga::publish()
{
    SimTime now = links.timeline.now();
    links.waveform.set(hostTrace, now, hostPowerGood());
    links.waveform.set(perstTrace, now, active ? (regs[0x62] & 1) : 1);
    links.waveform.set(muxTrace, now, muxReleased());
    if (onOutputsChange)
    {
        onOutputsChange();
    }
}

} // namespace ubbsim
