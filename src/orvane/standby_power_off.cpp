#include "orvane/standby_power_off.hpp"

#include "detail/board_constants.hpp"
#include "logging/events.hpp"
#include "logging/log_line.hpp"
#include "orvane/power_service.hpp"
#include "orvane/rail_engine.hpp"
#include "orvane/rail_tables.hpp"
#include "orvane/update_bits.hpp"
#include "utils/gpio_lines.hpp"

#include <string>

namespace orvane
{

namespace
{

using board::poweredOff;
using board::tries;
using board::unexpected;
using logging::level::INFO;
using logging::level::WARNING;

// Where the teardown starts, from the top down.
enum class Stage
{
    oam,
    k517,
    retimer,
    fpga,
    hmc,
    none,
};

Stage entryStage(uint32_t event)
{
    if (event == 0)
    {
        return Stage::hmc;
    }
    if (event <= 5)
    {
        return Stage::fpga;
    }
    if (event <= 11)
    {
        return Stage::retimer;
    }
    if (event <= 14 || event == sequence_event::basePowerOn)
    {
        return Stage::oam;
    }
    return Stage::none;
}

bool railsOff(OrvaneSvcState& state, RailList rails, uint8_t bank,
              const char* done, const char* failure)
{
    int error = 0;
    if (!EnableRails(state, error, rails, railAddress, bank, railChannel,
                     false))
    {
        NvEvent(WARNING, unexpected, "", "", "") << failure;
        return false;
    }
    ConsoleLog(INFO) << done;
    return true;
}

bool runStage(OrvaneSvcState& state, Stage stage)
{
    switch (stage)
    {
        case Stage::oam:
            return railsOff(state, oamRailsOff, oamBank, "OAM rail is off.",
                            "Power Sequence: [Standby power-off] OAM rail "
                            "fail.");
        case Stage::k517:
            return railsOff(state, k517RailsOffStandby, k517Bank,
                            "rt rail is off.",
                            "Power Sequence: [Standby power-off] k517 rt new "
                            "rail rail fail.");
        case Stage::retimer:
            return railsOff(state, retimerRailsOff, retimerBank,
                            "rt rail is off.",
                            "Power Sequence: [Standby power-off] rt rail "
                            "fail.");
        case Stage::fpga:
            return railsOff(state, fpgaRailsOff, fpgaBank, "FPGA rail is off.",
                            "Power Sequence: [Standby power-off] FPGA rail "
                            "fail.");
        case Stage::hmc:
            if (!SetGPIOOutput("GPU_BASE_HMC_READY", 0))
            {
                NvEvent(WARNING, unexpected, "", "", "")
                    << "Power Sequence: [Standby power-off] Fail to set GPIO "
                       "- GPU_BASE_HMC_READY output to low.";
                return false;
            }
            return true;
        case Stage::none:
            break;
    }
    return true;
}

bool disableBit(OrvaneSvcState& state, uint8_t reg, uint8_t mask)
{
    int error = 0;
    uint8_t readback = 0;
    uint8_t written = 0;
    if (!UpdateBitsRetry(state, error, tries, railChannel, railAddress, reg,
                         mask, written, readback, false, true, true,
                         "VR - Power Sequence: UBB hotswaps disabled"))
    {
        NvEvent(WARNING, unexpected, "", "", "")
            << "VR - Power Sequence:  UBB hotswaps disabled.";
        return false;
    }
    return true;
}

} // namespace

uint32_t Stby_Pwr_off_Sqnc(OrvaneSvcState& state)
{
    ConsoleLog(INFO) << "Standby power-off starting...";
    logging::LogPowerTransition(false, true);

    const uint32_t event = state.sequenceEvent;
    bool allDone = true;
    if (event == 14 || event == sequence_event::basePowerOn)
    {
        if (!SetGPIOOutput("GPU_BASE_FPGA_READY", 0))
        {
            NvEvent(WARNING, unexpected, "", "", "")
                << "Power Sequence: [Standby power-off] Fail to set GPIO - "
                   "GPU_BASE_FPGA_READY output to low.";
            allDone = false;
        }
    }
    // A failed stage is reported and the ones below it still run.
    for (auto stage = static_cast<int>(entryStage(event));
         stage < static_cast<int>(Stage::none); ++stage)
    {
        allDone &= runStage(state, static_cast<Stage>(stage));
    }
    if (!allDone)
    {
        return 0;
    }
    state.standbyPowerStatus = false;
    set_property("StandbyPowerStatus", 0);
    NvEvent(INFO, poweredOff, "Standby Power", "", "")
        << "Standby powered off.";
    return 1;
}

bool DisableUbbHotswaps(OrvaneSvcState& state)
{
    if (!disableBit(state, 0x0A, 0xFD))
    {
        return false;
    }
    ConsoleLog(INFO) << "IO expander reset";
    if (!disableBit(state, 0x09, 0xFE))
    {
        return false;
    }
    ConsoleLog(INFO) << "UBB hotswaps disabled";
    return true;
}

} // namespace orvane
