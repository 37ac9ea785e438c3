#include "orvane/standby_stage2.hpp"

#include "detail/board_constants.hpp"
#include "logging/events.hpp"
#include "logging/i2c_event.hpp"
#include "logging/log_line.hpp"
#include "orvane/oam_presence.hpp"
#include "orvane/product_scan.hpp"
#include "orvane/rail_engine.hpp"
#include "orvane/rail_tables.hpp"
#include "orvane/sgpio.hpp"
#include "orvane/ubb_fpga_config.hpp"
#include "orvane/update_bits.hpp"
#include "utils/hex_text.hpp"
#include "utils/i2c_ops.hpp"
#include "utils/platform/platform.hpp"

#include <array>
#include <filesystem>
#include <string>

namespace orvane
{

namespace
{

using namespace board;
using namespace logging::level;

constexpr uint8_t emcChannelConfig = 0x3B;
constexpr uint8_t emcExternalDiodes = 0x0E;

const std::string rmRecoveryCommand =
    "/usr/share/images/rm_recovery.sh 2>&1 | tee "
    "/run/initramfs/log_nv/rm_recovery.log";

void raise(const std::string& text)
{
    NvEvent(WARNING, unexpected, "", "", "") << text;
}

bool switchRails(OrvaneSvcState& state, RailList rails, uint8_t bank, bool on)
{
    int errorCode = 0;
    return EnableRails(state, errorCode, rails, railAddress, bank, railChannel,
                       on);
}

// One byte to a UBB FPGA register, optionally read back.
bool writeUbbFpga(uint8_t reg, uint8_t value, uint8_t* readBack,
                  const std::string& label)
{
    int event = 0;
    return WriteReadWithRetry(&event, tries, fpgaChannel, fpgaAddress, reg, 1,
                              &value, readBack ? 1 : 0, readBack, true, label);
}

bool updateUbbFpga(OrvaneSvcState& state, uint8_t reg, uint8_t mask, bool on,
                   uint8_t& readBack, const std::string& label)
{
    int errorCode = 0;
    uint8_t written = 0;
    return UpdateBitsRetry(state, errorCode, tries, fpgaChannel, fpgaAddress,
                           reg, mask, written, readBack, on, true, true, label);
}

bool cycleK517Rails(OrvaneSvcState& state)
{
    if (!switchRails(state, k517RailsOffCycle, k517Bank, false))
    {
        ConsoleLog(ERR) << "rt rail fail";
        raise("Power Sequence: [Standby power-on] rt rail fail.");
        return false;
    }
    ConsoleLog(INFO) << "rt rail is off";
    platform::sleepMilliseconds(1500);
    if (!switchRails(state, retimerRailsOn, retimerBank, true))
    {
        ConsoleLog(ERR) << "rt rail fail";
        raise("Power Sequence: [Standby power-on] rt rail fail.");
        return false;
    }
    ConsoleLog(INFO) << "rt rail is on";
    // Boards without the k517 retimers have no power good here.
    if (!switchRails(state, k517RailsOn, k517Bank, true))
    {
        ConsoleLog(ERR) << "rt rail fail";
        raise("Power Sequence: [Standby power-on] k517 rt new rail rail fail.");
    }
    else
    {
        ConsoleLog(INFO) << "rt rail is on";
    }
    return true;
}

// PERST stays low while the retimers leave reset; FW_RECOVERY follows.
bool releaseRetimers()
{
    if (!writeUbbFpga(0x62, 0x01, nullptr,
                      "Power Sequence: [Standby power-on] Assert PERST low"))
    {
        raise("Power Sequence: [Standby power-on] Fail to set PERST.");
        return false;
    }
    ConsoleLog(INFO) << "PERST low";
    for (int i = 1; i <= 8; ++i)
    {
        const auto reg = static_cast<uint8_t>(0x90 + i);
        if (!writeUbbFpga(reg, 0x00, nullptr,
                          "Power Sequence: [Standby power-on] De-assert reset "
                          "to retimer 0x9" +
                              std::to_string(i)))
        {
            raise("Power Sequence: [Stby power-on] Fail to de-assert reset to "
                  "retimer 0x" +
                  HexText(reg, 2));
            return false;
        }
    }
    ConsoleLog(INFO) << "Deasserted reset to all retimers.";
    uint8_t recovery = 0;
    if (!writeUbbFpga(0xB0, 0xFF, &recovery,
                      "Power Sequence: [Standby power-on] FW_RECOVERY updated"))
    {
        raise("Power Sequence: [Standby power-on] FW_RECOVERY updated fail.");
        return false;
    }
    ConsoleLog(INFO) << "FW_RECOVERY updated to 0x" << HexText(recovery);
    return true;
}

bool boardPath(const std::string& absolute)
{
    return platform::exists(absolute);
}

// The script leaves a marker per OAM whose RM it tried to recover.
void runRmRecovery()
{
    if (platform::shell().system(rmRecoveryCommand) != 0)
    {
        ConsoleLog(ERR) << "RM Rcovery Script : fail.";
        return;
    }
    for (int n = 0; n < 8; ++n)
    {
        const std::string oam = std::to_string(n);
        const std::string rm = "RM_" + oam;
        if (boardPath("/tmp/" + oam + ".rm_recovered"))
        {
            ConsoleLog(INFO)
                << "RM Recovery script: Sucessfully recovered RM on OAM# " << n;
            NvEvent(INFO, "AutomaticRecoveryTriggered", rm, "", "")
                << "RM Recovery Script: successfully recovered RM on OAM# "
                << n;
        }
        else if (boardPath("/tmp/" + oam + ".rm_unrecovered"))
        {
            const std::string text =
                "RM Recovery Script: failed to recover RM on OAM# " + oam;
            ConsoleLog(INFO) << text;
            NvEvent(INFO, "AutomaticRecoveryTriggered", rm, "", "") << text;
            NvEvent(CRITICAL, "AutomaticRecoveryFailureCritical", "", "", "")
                << text;
        }
    }
}

// No failure here stops standby: the sensor only reports temperatures.
void enableEmc1438()
{
    int event = 0;
    uint8_t value = emcExternalDiodes;
    if (!WriteReadWithRetry(&event, tries, expanderChannel, emcAddress,
                            emcChannelConfig, 1, &value, 0, nullptr, true,
                            "Power Sequence Standby Power On: Enable EMC1438"))
    {
        ConsoleLog(ERR)
            << "Power Sequence: [Standby power-on] Fail to enable EMC1438.";
    }
    uint8_t readBack = 0;
    if (!WriteReadWithRetry(
            &event, tries, expanderChannel, emcAddress, emcChannelConfig, 0,
            nullptr, 1, &readBack, true,
            "Power Sequence Standby Power On: Check EMC1438 is enable"))
    {
        ConsoleLog(ERR) << "Power Sequence: [Standby power-on] Fail to check "
                           "EMC1438 is enable.";
    }
    else if (readBack != emcExternalDiodes)
    {
        logging::AddI2CEvent(
            I2C_EVENT_DEVICE_STEP, CRITICAL,
            "Power Sequence Standby Power On: Fail to enable EMC1438", true,
            expanderChannel, emcAddress, emcChannelConfig, 1, &value, 1,
            &readBack);
    }
    ConsoleLog(INFO) << "Enable EMC1438 external diode channels by Channel "
                        "Configuration Register 0x3B.";
}

bool switchOamRails(OrvaneSvcState& state)
{
    if (!switchRails(state, oamRailsOn, oamBank, true))
    {
        raise("Power Sequence: [Standby power-on] oam rail fail.");
        return false;
    }
    ConsoleLog(INFO) << "oam rail is on";
    return true;
}

bool productsMatch(OrvaneSvcState& state)
{
    ScanProducts(state);
    if (!CheckMixedProducts())
    {
        ConsoleLog(ERR) << "Mixed OAM or UBB detected. System boot will stop.";
        return false;
    }
    ConsoleLog(INFO) << "No mixed OAM or UBB found.";
    return true;
}

// One read-modify-write of the regulator power-up for an update.
struct VrStep
{
    int channel;
    uint8_t address;
    uint8_t reg;
    uint8_t mask;
    bool on;
    bool verify;
    uint32_t failedEvent; // sequenceEvent on failure; none keeps it
    const char* label;
    const char* success;
    const char* failure;
};

constexpr std::array<VrStep, 4> vrSteps{{
    {fpgaChannel, fpgaAddress, 0x10, 0x02, true, true, sequence_event::none,
     "VR - Power Sequence Standby Power On: OAM I2C mux reset",
     "VR - OAM I2C mux reset released",
     "VR - Power Sequence: [Standby power-on] OAM I2C mux reset."},
    {fpgaChannel, fpgaAddress, hostGoodRegister, 0x00, false, false,
     sequence_event::module,
     "VR - Power Sequence Base Power Off: Host power good is disabled",
     "VR - Host Powergood is disabled",
     "VR - Power Sequence: Fail to set OAM host Power good Low."},
    {smcChannel, smcAddress, 0x0A, 0x02, true, true, sequence_event::none,
     "VR - Power Sequence Standby Power On: IO expander reset",
     "IO expander reset released",
     "VR - Power Sequence: [Standby power-on] IO expander reset"},
    {smcChannel, smcAddress, 0x09, 0x01, true, false, sequence_event::hotswap,
     "VR - Power Sequence Base Power On: enable Hotswap controller",
     "VR - Hotswap controller enabled",
     "VR - Power Sequence: [Base power-on] Fail to enable Hotswap "
     "controller."},
}};

bool runVrStep(OrvaneSvcState& state, const VrStep& step)
{
    int errorCode = 0;
    uint8_t readBack = 0;
    uint8_t written = 0;
    if (!UpdateBitsRetry(state, errorCode, tries, step.channel, step.address,
                         step.reg, step.mask, written, readBack, step.on,
                         step.verify, true, step.label))
    {
        if (step.failedEvent != sequence_event::none)
        {
            state.sequenceEvent = step.failedEvent;
        }
        raise(step.failure);
        return false;
    }
    if (step.reg == hostGoodRegister)
    {
        ConsoleLog(INFO) << "Register 0x60 value is 0x" << HexText(written);
    }
    ConsoleLog(INFO) << step.success;
    return true;
}

// The hot-swap controllers feed the OAM regulators.
bool waitHotswapGood(OrvaneSvcState& state)
{
    platform::sleepMilliseconds(1000);
    int errorCode = 0;
    uint8_t value = 0;
    if (!WaitPowerGood(state, errorCode, expanderChannel, moduleIdAddress, 0x04,
                       0x0F, true, value))
    {
        raise("VR - Power Sequence: [Base power-on] Fail to receive Hotswap "
              "controller Power good.");
        if (errorCode != 0)
        {
            logging::AddI2CEvent(errorCode, CRITICAL,
                                 "VR - Power Sequence Base Power On: Fail to "
                                 "receive Hotswap controller Power good.",
                                 true, expanderChannel, moduleIdAddress, 0x04,
                                 0, nullptr, 1, &value);
        }
        return false;
    }
    ConsoleLog(INFO) << "VR - Hotswap controller Power good Received";
    platform::sleepMilliseconds(10000);
    return true;
}

} // namespace

uint32_t Stby_Pwr_on_Sqnc_2_PreRetimer(OrvaneSvcState& state, int side)
{
    ConsoleLog(INFO) << "Stby_Pwr_on_Sqnc_2() pre retimer start";
    if (ConfigureUbbFpga(state, side) == 0)
    {
        ConsoleLog(ERR) << "Fail to configure UBB FPGA";
        return 0;
    }
    if (!switchRails(state, k517RailsOn, k517Bank, true))
    {
        ConsoleLog(ERR) << "rt rail fail";
        raise("Power Sequence: [Standby power-on] k517 rt new rail  fail.");
        return 0;
    }
    ConsoleLog(INFO) << "rt rail is on";
    return 1;
}

uint32_t Stby_Pwr_on_Sqnc_2(OrvaneSvcState& state)
{
    if (!cycleK517Rails(state))
    {
        return 0;
    }
    NvEvent(INFO, poweredOn, "UBB standby", "", "")
        << "UBB standby has powered on";
    if (!releaseRetimers() || !switchOamRails(state) || !productsMatch(state))
    {
        return 0;
    }
    NvEvent(INFO, poweredOn, "OAM standby", "", "")
        << "OAM standby has powered on";
    runRmRecovery();

    uint8_t readBack = 0;
    if (!updateUbbFpga(state, 0x10, 0x02, true, readBack,
                       "Power Sequence Standby Power On: OAM I2C mux reset"))
    {
        raise("Power Sequence: [Standby power-on] OAM I2C mux reset.");
        return 0;
    }
    ConsoleLog(INFO) << "OAM I2C mux reset released";
    enableEmc1438();

    if (!updateUbbFpga(
            state, 0x99, 0xFE, false, readBack,
            "Power Sequence Standby Power On: set UBB FPGA register 0x99 to 0"))
    {
        raise("Power Sequence: [Standby power-on] Fail to set UBB FPGA "
              "register 0x99.");
        return 0;
    }
    ConsoleLog(INFO) << "Set UBB FPGA reg 0x99 to value 0x"
                     << HexText(readBack);
    InitSmcFpgaSgpio();
    InitUbbFpgaSgpio();
    DetectPhysicalMissing(state);
    return 1;
}

uint32_t CycleOamRail(OrvaneSvcState& state)
{
    if (!switchRails(state, oamRailsOff, oamBank, false))
    {
        raise("Power Sequence: [Standby power-off] OAM rail fail.");
        return 0;
    }
    ConsoleLog(INFO) << "OAM rail is off.";
    platform::sleepSeconds(1);
    return switchOamRails(state) ? 1 : 0;
}

uint32_t VrPowerOnForUpdate(OrvaneSvcState& state)
{
    if (!switchRails(state, oamRailsOn, oamBank, true))
    {
        raise("VR - Power Sequence: [Standby power-on] oam rail fail.");
        return 0;
    }
    ConsoleLog(INFO) << "VR - oam rail is on";
    for (const VrStep& step : vrSteps)
    {
        if (!runVrStep(state, step))
        {
            return 0;
        }
    }
    return waitHotswapGood(state) ? 1 : 0;
}

} // namespace orvane
