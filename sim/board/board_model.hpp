#pragma once

#include "board/emc1438.hpp"
#include "board/fault_book.hpp"
#include "board/gpio_lines.hpp"
#include "board/hotswap.hpp"
#include "board/i2c_buses.hpp"
#include "board/io_expander.hpp"
#include "board/module_power.hpp"
#include "board/oam_module.hpp"
#include "board/oam_mux.hpp"
#include "board/pmbus_device.hpp"
#include "board/rails.hpp"
#include "board/rm_device.hpp"
#include "board/smc_expander.hpp"
#include "board/smc_fpga_status.hpp"
#include "board/spi_flash.hpp"
#include "board/timeline.hpp"
#include "board/ubb_fpga.hpp"
#include "board/waveform.hpp"
#include "scenario/scenario.hpp"

#include <array>
#include <memory>
#include <string>
#include <vector>

namespace ubbsim
{

// The devices of the UBB and the wires between them. Not locked: the
// board that holds it serialises all calls.
class BoardModel
{
  public:
    explicit BoardModel(const Scenario& scenario);
    BoardModel(const BoardModel&) = delete;
    BoardModel& operator=(const BoardModel&) = delete;

    std::vector<std::string> summary() const;

    const uint8_t present; // bit n: OAM n is in its slot
    Timeline timeline;
    Waveform waveform;
    FaultBook faults;
    GpioLines gpio;
    RailSet rails;
    SmcExpander smcExpander;
    HotswapPower hotswap;
    IoExpander linkConfig;
    IoExpander moduleId;
    ModulePower modules;
    UbbFpga fpga;
    OamMux mux;
    std::array<std::unique_ptr<OamModule>, 8> oams; // null: an empty slot
    std::array<std::unique_ptr<RmDevice>, 8> rms;   // on the OAM, as above
    Emc1438 emc;
    SmcFpgaStatus smcStatus;
    std::vector<std::unique_ptr<PmbusDevice>> ubbPower;
    I2cBuses buses;
    DeviceImages images;
    SpiFlash spi;

  private:
    void connect();
    void attachDevices();
    void scheduleHost(const std::vector<HostAction>& actions);
    void scheduleFaults();
    void startWarm(bool base);
    bool oamPowered(int oam) const;

    Waveform::Signal ioResetTrace;
};

} // namespace ubbsim
