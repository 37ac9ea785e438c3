#include "orvane/base_power_on.hpp"

#include "detail/board_constants.hpp"
#include "logging/events.hpp"
#include "logging/log_line.hpp"
#include "orvane/error_injection.hpp"
#include "orvane/io_expanders.hpp"
#include "orvane/power_service.hpp"
#include "orvane/rail_engine.hpp"
#include "orvane/update_bits.hpp"
#include "orvane/vr_fault_clear.hpp"
#include "orvane/warm_boot.hpp"
#include "utils/gpio_lines.hpp"
#include "utils/i2c_ops.hpp"
#include "utils/platform/platform.hpp"

#include <array>
#include <chrono>
#include <erotlib/erot.hpp>
#include <filesystem>
#include <iomanip>
#include <string>

namespace orvane
{

namespace
{

using namespace board;
using logging::level::CRITICAL;
using logging::level::ERR;
using logging::level::INFO;
using logging::level::WARNING;

constexpr const char* selfTestFailed =
    "ResourceEvent.1.2.1.ResourceSelfTestFailed";

constexpr uint8_t controlRegister = 0x09; // hotswap enable, I2C switch
constexpr uint8_t i2cSwitchRun = 0x08;    // 0 holds the switch in reset
constexpr uint8_t ioExpanderRegister = 0x0A;
constexpr uint8_t perstRegister = 0x62;

constexpr double moduleGoodTimeoutMs = 2000.0;

constexpr const char* injectionMarker = "/var/lib/redfish_error_injection_mode";

// The bytes of one attempt.
struct Attempt
{
    uint8_t prsnt = 0;
    uint8_t presentMask = 0;
    uint8_t moduleGood = 0;
};

uint32_t fail(OrvaneSvcState& state,
              uint32_t event = sequence_event::beforeHotswap)
{
    state.sequenceEvent = event;
    return 0;
}

// Polls the host's enable and the HGX plug bit until the host asks for base
// power, or the monitor asks for a re-sequence.
void waitForEnable(OrvaneSvcState& state)
{
    bool firstNotice = true;
    while (true)
    {
        int value = 0;
        uint8_t status = 0;
        if (!GetGPIOValue("GPU_BASE_PWR_EN", value))
        {
            NvEvent(WARNING, unexpected, "", "", "")
                << "Power Sequence: [Base power-on] Fail to get the value of "
                   "GPIO - GPIO_BASE_PWR_EN.";
            platform::sleepMilliseconds(2000);
        }
        else if (!detail::ReadRegister(smcChannel, smcAddress,
                                       plugStatusRegister, status))
        {
            ConsoleLog(ERR) << "Fail to read Slave address 0x25 Addr 0x04\n";
            platform::sleepMilliseconds(2000);
        }
        else
        {
            const bool unplugged = (status & unpluggedBit) != 0;
            if (value == 1 && !unplugged)
            {
                state.baseTransition = true;
                return;
            }
            if (unplugged && firstNotice)
            {
                ConsoleLog(INFO) << "UBB not Plugged into HGX host\n";
                ConsoleLog(INFO) << "UBB will not power on GPUs\n";
                firstNotice = false;
            }
            platform::sleepSeconds(1);
        }
        if (state.baseDownRequest)
        {
            return;
        }
    }
}

bool readPresence(Attempt& attempt)
{
    int event = 0;
    bool ok = WriteReadWithRetry(
        &event, tries, fpgaChannel, fpgaAddress, prsntRegister, 0, nullptr, 1,
        &attempt.prsnt, true,
        "Power Sequence Base Power On: Read OAM PRSNT signal to detect OAM");
    if (!ok)
    {
        ConsoleLog(ERR) << "Fail to read OAM PRSNT signal to detect OAM";
    }
    else
    {
        ConsoleLog(INFO) << "Read OAM PRSNT signal to detect OAM. Value: 0x"
                         << std::hex << std::setw(2) << std::setfill('0')
                         << num(attempt.prsnt);
    }
    attempt.presentMask = static_cast<uint8_t>(~attempt.prsnt);
    return ok;
}

bool readModuleGood(Attempt& attempt)
{
    int event = 0;
    return WriteReadWithRetry(
        &event, tries, fpgaChannel, fpgaAddress, moduleGoodRegister, 0, nullptr,
        1, &attempt.moduleGood, true,
        "Power Sequence Base Power On: Read OAM module Power good");
}

void publishInjection(OrvaneSvcState& state)
{
    set_property("OAMErrorInjection", state.oamErrorInjection ? 1 : 0);
}

// Power stayed good through an SMC warm reset: only the state is learnt.
uint32_t warmSkip(OrvaneSvcState& state, Attempt& attempt, uint32_t warm)
{
    ConsoleLog(INFO) << "Skip Base_Pwr_on_Sqnc,because power good is assert.";
    NvEvent(INFO, poweredOn, "UBB base", "", "") << "UBB base has powered on";
    SetOamErrorInjection(state, false);
    publishInjection(state);
    readPresence(attempt);
    readModuleGood(attempt);
    NvEvent(INFO, poweredOn, "OAM base", "", "") << "OAM base has powered on";
    return warm;
}

// Holds the OAMs' I2C switch in reset for the power-up.
bool holdI2cSwitch(OrvaneSvcState& /*state*/)
{
    int event = 0;
    uint8_t control = 0;
    if (!WriteReadWithRetry(&event, tries, smcChannel, smcAddress,
                            controlRegister, 0, nullptr, 1, &control, true,
                            "Power Sequence Base Power On: Read from bus 4, "
                            "address 0x25, offset 0x09"))
    {
        NvEvent(WARNING, unexpected, "", "", "")
            << "Power Sequence: [Base power-on] Fail to read bus4, addr 0x25, "
               "offset 0x09";
        control = 0;
    }
    uint8_t held = control & static_cast<uint8_t>(~i2cSwitchRun);
    if (!WriteReadWithRetry(&event, tries, smcChannel, smcAddress,
                            controlRegister, 1, &held, 0, nullptr, true,
                            "Power Sequence: [Base power-on] Write to bus4, "
                            "addr 0x25, offset 0x09" +
                                std::to_string(held)))
    {
        NvEvent(WARNING, unexpected, "", "", "")
            << "Power Sequence: [Base power-on] Fail to keep the I2C switch "
               "under reset";
        return false;
    }
    ConsoleLog(INFO) << "Keep I2C switch under Reset";
    return true;
}

// Sets the bits of `mask` in one register, three tries; a failure raises
// `failure`. `value` is the byte written, or the one read back to verify.
bool setBits(OrvaneSvcState& state, int channel, uint8_t address, uint8_t reg,
             uint8_t mask, bool verify, const std::string& label,
             const char* failure, uint8_t& value)
{
    int error = 0;
    uint8_t readback = 0;
    uint8_t written = 0;
    if (!UpdateBitsRetry(state, error, tries, channel, address, reg, mask,
                         written, readback, true, verify, true, label))
    {
        NvEvent(WARNING, unexpected, "", "", "") << failure;
        return false;
    }
    value = verify ? readback : written;
    return true;
}

bool releaseIoExpanders(OrvaneSvcState& state)
{
    uint8_t readback = 0;
    if (!setBits(state, smcChannel, smcAddress, ioExpanderRegister, 0x02, true,
                 "Power Sequence Base Power On: MODULE ID and Link Config IO "
                 "Expanders reset",
                 "Power Sequence: [Base power-on] MODULE ID and Link Config IO "
                 "Expanders reset fail.",
                 readback))
    {
        return false;
    }
    ConsoleLog(INFO) << "Register 0x0a value is 0x" << std::hex
                     << num(readback);
    ConsoleLog(INFO) << "MODULE ID and Link Config IO Expanders - Out of reset";
    return true;
}

// Everything before the OAM control lines; a failure here is event 16.
bool prepare(OrvaneSvcState& state, Attempt& attempt)
{
    if (!holdI2cSwitch(state))
    {
        return false;
    }
    if (!SetGPIOOutput("GPU_BASE_PWR_GD", 0))
    {
        NvEvent(WARNING, unexpected, "", "", "")
            << "Power Sequence: [Base power-on] Fail to set GPIO - "
               "GPU_BASE_PWR_GD output to low.";
        return false;
    }
    ConsoleLog(INFO) << "De-assert Base PWR GD signal to BMC.";
    if (!readPresence(attempt) || !releaseIoExpanders(state))
    {
        return false;
    }
    if (ConfigureIoExpanders(state, attempt.presentMask) == 0)
    {
        NvEvent(WARNING, unexpected, "", "", "")
            << "Power Sequence: [Base power-on] Fail to Configure IO "
               "Expander.";
        return false;
    }
    return true;
}

// IFWI flash, warm reset and the OAM control lines; nothing is checked.
void driveOamControls()
{
    int event = 0;
    I2CWriteMemoryByte(&event, fpgaChannel, fpgaAddress, 0x40, 0x00);
    I2CWriteMemoryByte(&event, fpgaChannel, fpgaAddress, 0x41, 0x00);
    ConsoleLog(INFO) << "Asserted OAM IFWI flash to all OAMs.";
    I2CWriteMemoryByte(&event, fpgaChannel, fpgaAddress, 0x66, 0xFF);
    ConsoleLog(INFO) << "Set warm_reset high to all OAMs.";
    I2CWriteMemoryByte(&event, fpgaChannel, fpgaAddress, 0x80, 0x02);
}

// Every RM to "injection disabled"; the result is that of the last one.
bool disableRmInjection()
{
    const uint8_t pair[2] = {0x4E, 0x01};
    bool last = true;
    for (int channel : rmChannels)
    {
        int event = 0;
        last = I2CWriteMemoryBlock(&event, channel, rmAddress, 0xF2,
                                   sizeof(pair), pair);
        if (!last)
        {
            ConsoleLog(ERR) << "Fail to enable/disable oam error injection";
        }
    }
    return last;
}

void reportManageability()
{
    uint8_t status = 0;
    int rc = erot::ErotSetManageabilityFeature(1, 1, &status);
    const std::string prefix = "[orvane] Fail to access eRoT API - "
                               "ErotSetManageabilityFeature; Return code: ";
    if (rc != 0)
    {
        NvEvent(CRITICAL, selfTestFailed, prefix + std::to_string(rc), "", "")
            << "Fail to run ErotSetManageabilityFeature. Return Code: " << rc;
    }
    else if (status != 0)
    {
        NvEvent(CRITICAL, selfTestFailed, prefix + std::to_string(status), "",
                "")
            << "Fail to run ErotSetManageabilityFeature. Error Code: "
            << unsigned{status};
    }
}

bool enableHotswap(OrvaneSvcState& state)
{
    uint8_t value = 0;
    if (!setBits(state, smcChannel, smcAddress, controlRegister, 0x01, false,
                 "Power Sequence Base Power On: enable Hotswap controller",
                 "Power Sequence: [Base power-on] Fail to enable Hotswap "
                 "controller.",
                 value))
    {
        return false;
    }
    ConsoleLog(INFO) << "Hotswap controller enabled";
    platform::sleepMilliseconds(1000);
    int error = 0;
    if (!WaitPowerGood(state, error, expanderChannel, moduleIdAddress, 0x04,
                       0x0F, true, value))
    {
        NvEvent(WARNING, unexpected, "", "", "")
            << "Power Sequence: [Base power-on] Fail to receive Hotswap "
               "controller Power good.";
        if (error != 0)
        {
            logging::AddI2CEvent(error, CRITICAL,
                                 "Power Sequence Base Power On: Fail to "
                                 "receive Hotswap controller Power good.",
                                 true, expanderChannel, moduleIdAddress, 0x04,
                                 0, nullptr, 1, &value);
        }
        return false;
    }
    ConsoleLog(INFO) << "Hotswap controller Power good Received";
    NvEvent(INFO, poweredOn, "UBB base", "", "") << "UBB base has powered on";
    platform::sleepMilliseconds(1000);
    return true;
}

bool setHostPowerGood(OrvaneSvcState& state, const Attempt& attempt)
{
    uint8_t written = 0;
    if (!setBits(state, fpgaChannel, fpgaAddress, hostGoodRegister,
                 attempt.presentMask, false,
                 "Power Sequence Base Power On: set OAM host Power good",
                 "Power Sequence: [Base power-on] Fail to set OAM host Power "
                 "good.",
                 written))
    {
        return false;
    }
    ConsoleLog(INFO) << "Register 0x60 value is 0x" << std::hex << num(written);
    ConsoleLog(INFO) << "Host Powergood is enabled";
    platform::sleepMilliseconds(1000);
    return true;
}

// Absent slots read 0 in register 0x61; their PRSNT bits fill them in.
bool waitModuleGood(Attempt& attempt)
{
    const auto start = platform::clock().steadyNow();
    while (true)
    {
        readModuleGood(attempt);
        const auto seen = static_cast<uint8_t>(
            (attempt.moduleGood & attempt.presentMask) | attempt.prsnt);
        if (seen == 0xFF)
        {
            ConsoleLog(INFO) << "Register 0x61 value is 0x" << std::hex
                             << num(attempt.moduleGood);
            ConsoleLog(INFO) << "Module Power good Received";
            return true;
        }
        std::chrono::duration<double, std::milli> gone =
            platform::clock().steadyNow() - start;
        if (gone.count() > moduleGoodTimeoutMs)
        {
            NvEvent(WARNING, unexpected, "", "", "")
                << "Power Sequence: [Base power-on] Fail to receive Module "
                   "Power good.";
            return false;
        }
    }
}

bool releaseRetimers()
{
    if (!detail::WriteRetimerResets(
            0x10,
            "Power Sequence: [Base power-on] Release reset to retimer 0x9",
            "Power Sequence: [Base power-on] Fail to release reset to retimer "
            "0x"))
    {
        return false;
    }
    ConsoleLog(INFO) << "Reset to Retimer released";
    return true;
}

// Fanout buffer, retimers, and power good to the BMC.
bool finish(OrvaneSvcState& state)
{
    uint8_t written = 0;
    if (!setBits(state, fpgaChannel, fpgaAddress, 0x10, 0x01, false,
                 "Power Sequence Base Power On: receive Hotswap controller "
                 "Power good",
                 "Power Sequence: [Base power-on] Fail to release Fanout "
                 "buffer PWRDWN.",
                 written))
    {
        return false;
    }
    ConsoleLog(INFO) << "Fanout buffer PWRDWN released";
    platform::sleepMilliseconds(5000);
    if (!setBits(state, fpgaChannel, fpgaAddress, 0x99, 0x01, false,
                 "Power Sequence Base Power On: set UBB FPGA register 0x99 to "
                 "1",
                 "Power Sequence: [Base power-on] Fail to set UBB FPGA "
                 "register 0x99.",
                 written))
    {
        return false;
    }
    ConsoleLog(INFO) << "Set UBB FPGA reg 0x99 to value 0x" << std::hex
                     << num(written);
    if (!releaseRetimers())
    {
        return false;
    }
    platform::sleepMilliseconds(1000);
    if (!SetGPIOOutput("GPU_BASE_PWR_GD", 1))
    {
        NvEvent(WARNING, unexpected, "", "", "")
            << "Power Sequence: [Base power-on] Fail to set GPIO - "
               "GPU_BASE_PWR_GD output to high.";
        return false;
    }
    ConsoleLog(INFO) << "Base power good signal asserted";
    return true;
}

// Hotswap to base power good for a board with at least one OAM; a failure
// sets how far it got.
uint32_t powerOams(OrvaneSvcState& state, Attempt& attempt)
{
    ConsoleLog(INFO) << "OAM PRSNT detected";
    if (!enableHotswap(state))
    {
        return fail(state, sequence_event::hotswap);
    }
    if (!setHostPowerGood(state, attempt) || !waitModuleGood(attempt))
    {
        return fail(state, sequence_event::module);
    }
    NvEvent(INFO, poweredOn, "OAM base", "", "") << "OAM base has powered on";
    detail::ClearVrFaults(attempt.prsnt);
    if (!finish(state))
    {
        return fail(state, sequence_event::module);
    }
    return 1;
}

void releasePerst()
{
    int event = 0;
    I2CWriteMemoryByte(&event, fpgaChannel, fpgaAddress, perstRegister, 0x00);
    ConsoleLog(INFO) << "PERST released";
}

void publishOn(OrvaneSvcState& state, const Attempt& attempt)
{
    state.oamPresentMask = attempt.presentMask;
    state.moduleGoodMask = attempt.moduleGood;
    state.sequenceEvent = sequence_event::basePowerOn;
    state.basePowerStatus = true;
    set_property("BasePowerStatus", 1);
    state.baseDownRequest = false;
    state.baseTransition = false;
    platform::zellib().setBootTimeFinish(state.basePowerStatus);
    // The FRU service learns of the OAMs' EEPROMs now that they have power.
    for (int run = 0; run < 3; ++run)
    {
        if (platform::shell().system(fruRescanCommand) == -1)
        {
            ConsoleLog(ERR) << "Error Rescan FruDevice";
        }
    }
}

void removeInjectionMarker()
{
    std::error_code error;
    const auto marker = platform::path(injectionMarker);
    if (std::filesystem::exists(marker, error))
    {
        ConsoleLog(INFO) << "remove ERROR_INJECTION file";
        std::filesystem::remove(marker, error);
    }
}

// A full power-up, after the warm check said no.
uint32_t fullPowerOn(OrvaneSvcState& state, Attempt& attempt)
{
    if (!prepare(state, attempt))
    {
        return fail(state);
    }
    driveOamControls();
    const bool lastRmWrite = disableRmInjection();
    SetOamErrorInjection(state, false);
    if (state.oamErrorInjection)
    {
        reportManageability();
    }
    publishInjection(state);
    uint32_t result = 1;
    if (attempt.presentMask == 0)
    {
        // A bare board has nothing more to power: it ends like a good run,
        // and only the RM write says whether the attempt counts as one.
        ConsoleLog(INFO) << "OAM PRSNT not detected";
        result = lastRmWrite ? 1 : 0;
    }
    else if (powerOams(state, attempt) == 0)
    {
        return 0;
    }
    releasePerst();
    publishOn(state, attempt);
    return result;
}

} // namespace

namespace detail
{

bool ReadRegister(int channel, uint8_t address, uint8_t reg, uint8_t& value)
{
    int event = 0;
    return I2CSmbusReadBlock(&event, channel, address, reg, &value, 1);
}

} // namespace detail

uint32_t Base_Pwr_on_Sqnc(OrvaneSvcState& state)
{
    Attempt attempt;
    // A re-sequence after a fault starts at once.
    if (!state.baseDownRequest)
    {
        waitForEnable(state);
    }
    ConsoleLog(INFO) << "Base Power Enable Received";
    logging::LogPowerTransition(true, false);
    removeInjectionMarker();
    ConsoleLog(INFO) << "OAM error injection will set to disable";

    if (uint32_t warm = CheckWarmBootPowerGood(state); warm != 0)
    {
        const uint32_t result = warmSkip(state, attempt, warm);
        publishOn(state, attempt);
        return result;
    }
    return fullPowerOn(state, attempt);
}

bool detail::WriteRetimerResets(uint8_t value, const std::string& label,
                                const std::string& failure)
{
    for (int i = 1; i <= 8; ++i)
    {
        int event = 0;
        uint8_t byte = value;
        const auto reg = static_cast<uint8_t>(0x90 + i);
        if (!WriteReadWithRetry(&event, tries, fpgaChannel, fpgaAddress, reg, 1,
                                &byte, 0, nullptr, true,
                                label + std::to_string(i)))
        {
            NvEvent(WARNING, unexpected, "", "", "")
                << failure << std::hex << num(reg);
            return false;
        }
    }
    return true;
}

} // namespace orvane
