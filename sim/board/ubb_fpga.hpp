#pragma once

#include "board/fault_book.hpp"
#include "board/gpio_lines.hpp"
#include "board/i2c_device.hpp"
#include "board/rails.hpp"

#include <array>
#include <functional>

namespace ubbsim
{

// The UBB FPGA (channel 3, 0x56). It loads its image on a PROG_B pulse
// while its rails are good and its flash is its own, raises HDT_DBREQ_L
// when active, and answers I2C only then. Its registers drive the OAM
// control lines; a few report the OAMs' signals.
class UbbFpga : public RegisterDevice
{
  public:
    static constexpr SimTime loadTime = std::chrono::milliseconds(1500);

    struct Links
    {
        Timeline& timeline;
        Waveform& waveform;
        GpioLines& gpio;
        const RailSet& rails;
        FaultBook& faults;
    };

    UbbFpga(Links links, uint8_t present, std::function<uint8_t()> moduleGood);

    int status() const override;

    bool configured() const
    {
        return active;
    }
    uint8_t hostPowerGood() const
    {
        return active ? regs[0x60] : 0x00;
    }
    bool muxReleased() const
    {
        return active && (regs[0x10] & 0x02);
    }
    uint8_t sgpioStatus() const
    {
        return sgpio;
    }

    // The OAMs whose IFWI flash the FPGA puts on the SMC's SPI bus:
    // register 0x40 selects them while 0x41 asks for the parallel read (0).
    uint8_t ifwiRouting() const
    {
        return active && regs[0x41] == 0 ? regs[0x40] : 0;
    }
    // Register 0x42: the OAMs whose line differed during the last stream.
    void reportMisoDifference(uint8_t oams)
    {
        regs[0x42] = oams;
    }

    // The FPGA rails changed: an FPGA without power forgets its image.
    void railsChanged();
    void setCtf(int oam, bool tripped);
    void raiseSgpio(uint8_t bits);
    void setServerReset(bool asserted);
    // Starts the board with the image loaded and registers as given.
    void configureNow();
    void preset(uint8_t reg, uint8_t value);

    // Called when an output of the registers may have changed.
    std::function<void()> onOutputsChange;

  protected:
    uint8_t load(uint8_t reg) override;
    void store(uint8_t reg, uint8_t value) override;

  private:
    void programPin(int level);
    void startLoad();
    void setActive(bool on);
    void powerOnRegisters();
    void publish();

    Links links;
    uint8_t present;
    std::function<uint8_t()> moduleGood;
    std::array<uint8_t, 256> regs{};
    bool active = false;
    bool programLow = false;
    uint64_t loads = 0; // tells a pending load from a newer pulse
    uint8_t ctfTrips = 0;
    uint8_t sgpio = 0;
    bool serverRunning = true;
    Waveform::Signal hostTrace;
    Waveform::Signal perstTrace;
    Waveform::Signal muxTrace;
    Waveform::Signal ctfTrace;
    Waveform::Signal serverTrace;
};

} // namespace ubbsim
