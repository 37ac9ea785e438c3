#include "orvane/standby_power.hpp"

#include "detail/board_constants.hpp"
#include "logging/events.hpp"
#include "logging/log_line.hpp"
#include "orvane/dac_check.hpp"
#include "orvane/oam_presence.hpp"
#include "orvane/power_service.hpp"
#include "orvane/product_scan.hpp"
#include "orvane/warm_boot.hpp"
#include "utils/gpio_lines.hpp"
#include "utils/hex_text.hpp"
#include "utils/i2c_ops.hpp"
#include "utils/platform/platform.hpp"

#include <array>

namespace orvane
{

namespace
{

using namespace board;
using namespace logging::level;

constexpr int dbusReadyLooks = 5;

struct RegisterSetting
{
    uint8_t reg;
    uint8_t value;
    bool logged; // the direction registers that set up the rails
};

constexpr std::array<RegisterSetting, 7> smcFpgaSettings{{
    {0x08, 0x00, false},
    {0x09, 0x08, false},
    {0x0A, 0x00, false},
    {0x18, 0x00, true},
    {0x19, 0xF0, true},
    {0x1A, 0x01, true},
    {0x1B, 0xCF, false},
}};

struct GpioReset
{
    const char* line;
    const char* failure;
};

// The ready signals go low before the SMC FPGA is reprogrammed, so that
// the host never sees them from a previous run.
constexpr std::array<GpioReset, 4> startUpLines{{
    {"GPU_BASE_FPGA_READY", "Fail to Set GPU_BASE_FPGA_READY"},
    {"GPU_BASE_PWR_GD", "Fail to Set GPU_BASE_PWR_GD"},
    {"GPU_BASE_HMC_READY", "Fail to set GPU_BASE_HMC_READY"},
    {"SMC_FPGA_PROG_CTRL", "Fail to set SMC_FPGA_PROG_CTRL"},
}};

void waitForDbus()
{
    for (int look = 0; !DbusReady(); ++look)
    {
        // While the bus name is not settled another instance may be running
        // the board: the wait then lasts as long as the claim does.
        if (look >= dbusReadyLooks && !DbusNameClaimPending())
        {
            // The sequence goes on: later publications fail on their own.
            ConsoleLog(ERR) << "Fail to initialize the dbus service "
                               "xyz.openbmc_project.Orvane";
            return;
        }
        platform::sleepSeconds(1);
    }
}

void clearAndPublish(OrvaneSvcState& state)
{
    state.standbyPowerStatus = false;
    set_property("StandbyPowerStatus", state.standbyPowerStatus);
    state.basePowerStatus = false;
    set_property("BasePowerStatus", state.basePowerStatus);
    state.oamErrorInjection = false;
    set_property("OAMErrorInjection", state.oamErrorInjection);
    state.ubbFpgaStatus = false;
    set_property("UBBFPGAStatus", state.ubbFpgaStatus);
    // Published under the UBB name on purpose; SMCFPGAStatus keeps its
    // value from registration.
    state.smcFpgaStatus = false;
    set_property("UBBFPGAStatus", state.smcFpgaStatus);
    state.serverResetStatus = false;
    set_property("ServerResetStatus", state.serverResetStatus);
}

void raisePoweredOn(const char* resource)
{
    NvEvent(INFO, poweredOn, resource, "", "") << resource << " has powered on";
}

// The board kept standby power through an SMC reset: only the products
// and the published state are brought up to date.
uint32_t resumeWarm(OrvaneSvcState& state)
{
    ConsoleLog(INFO) << "Skip Stby_Pwr_on_Sqnc,because power good is assert.";
    raisePoweredOn("UBB standby");
    raisePoweredOn("OAM standby");
    ScanProducts(state);
    state.standbyPowerStatus = true;
    set_property("StandbyPowerStatus", state.standbyPowerStatus);
    return 1;
}

bool pulseProgramControl()
{
    platform::sleepMilliseconds(100);
    bool ok = SetGPIOOutput("SMC_FPGA_PROG_CTRL", 1);
    if (ok)
    {
        platform::sleepMilliseconds(100);
        ok = SetGPIOOutput("SMC_FPGA_PROG_CTRL", 0);
    }
    if (!ok)
    {
        ConsoleLog(ERR) << "Fail to set SMC_FPGA_PROG_CTRL";
        return false;
    }
    platform::sleepMilliseconds(100);
    return true;
}

bool configureSmcFpga()
{
    for (const RegisterSetting& setting : smcFpgaSettings)
    {
        int event = 0;
        uint8_t value = setting.value;
        uint8_t readBack = 0;
        if (!WriteReadWithRetry(
                &event, tries, smcChannel, smcAddress, setting.reg, 1, &value,
                1, &readBack, true,
                "Power Sequence Standby Power IO_Expander_Configuration"))
        {
            return false;
        }
        if (setting.logged)
        {
            ConsoleLog(INFO)
                << "SMC FPGA register 0x" << HexText(setting.reg, 2)
                << ", value: 0x" << HexText(readBack, 2);
        }
    }
    return true;
}

} // namespace

uint32_t Stby_Pwr_on_Sqnc_1(OrvaneSvcState& state)
{
    ConsoleLog(INFO) << "Stby_Pwr_on_Sqnc_1() start";
    logging::LogPowerTransition(true, true);
    ConsoleLog(INFO)
        << "Initialize the dbus service xyz.openbmc_project.Orvane...";
    waitForDbus();
    clearAndPublish(state);

    if (CheckWarmBootPowerGood(state) != 0)
    {
        return resumeWarm(state);
    }
    if (OrvaneSvcStartUp(state) == 0)
    {
        ConsoleLog(ERR) << "StartUp fail";
        return 0;
    }
    if (!SetGPIOOutput("GPU_BASE_HMC_READY", 1))
    {
        NvEvent(WARNING, unexpected, "", "", "")
            << "Power Sequence: [Standby power-on] Fail to set "
               "GPU_BASE_HMC_READY.";
        return 0;
    }
    ConsoleLog(INFO) << "HMC Ready signal asserted";
    return 1;
}

uint32_t OrvaneSvcStartUp(OrvaneSvcState&)
{
    ConsoleLog(INFO) << "OrvaneSvc StartUp";
    for (const GpioReset& reset : startUpLines)
    {
        if (!SetGPIOOutput(reset.line, 0))
        {
            ConsoleLog(ERR) << reset.failure;
            return 0;
        }
    }
    if (!pulseProgramControl() || !configureSmcFpga())
    {
        return 0;
    }
    platform::sleepMilliseconds(200);
    return 1;
}

uint32_t Stby_Pwr_on_Sqnc_3(OrvaneSvcState& state)
{
    ConsoleLog(INFO) << "Stby_Pwr_on_Sqnc_3() start";
    WriteOamPresence(state);
    if (!CheckDacConfig(state))
    {
        ConsoleLog(INFO) << "DAC update failed";
    }
    if (!SetGPIOOutput("GPU_BASE_FPGA_READY", 1))
    {
        NvEvent(WARNING, unexpected, "", "", "")
            << "Power Sequence: [Standby power-on] Fail to set GPIO - "
               "GPU_BASE_FPGA_READY output to high.";
        return 0;
    }
    ConsoleLog(INFO) << "FPGA Ready signal asserted";
    state.standbyPowerStatus = true;
    set_property("StandbyPowerStatus", state.standbyPowerStatus);
    return 1;
}

} // namespace orvane
