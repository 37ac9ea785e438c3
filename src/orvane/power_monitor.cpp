#include "orvane/power_monitor.hpp"

#include "detail/board_constants.hpp"
#include "logging/events.hpp"
#include "logging/log_line.hpp"
#include "orvane/power_service.hpp"
#include "orvane/rail_engine.hpp"
#include "orvane/sgpio.hpp"
#include "utils/i2c_ops.hpp"
#include "utils/platform/platform.hpp"

#include <array>
#include <string>

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::ERR;
using logging::level::INFO;

using namespace board;

// A power good bit of the SMC FPGA's expander image.
constexpr MonitorEntry rail(uint32_t event, uint8_t mask, uint8_t reg)
{
    return {event, mask, reg, smcAddress, smcChannel};
}

// The watch lists, in watch order.
constexpr std::array<MonitorEntry, 5> fpgaRails{
    rail(1, 0x80, 0x01), rail(2, 0x40, 0x03), rail(3, 0x80, 0x03),
    rail(4, 0x01, 0x04), rail(5, 0x08, 0x04)};
constexpr std::array<MonitorEntry, 2> k517Rails{rail(10, 0x01, 0x02),
                                                rail(11, 0x04, 0x04)};
constexpr std::array<MonitorEntry, 6> retimerRails{
    rail(6, 0x04, 0x03), rail(7, 0x02, 0x03),  rail(8, 0x80, 0x04),
    rail(9, 0x40, 0x04), rail(10, 0x08, 0x03), rail(11, 0x01, 0x03)};
constexpr std::array<MonitorEntry, 2> oamRails{rail(12, 0x20, 0x04),
                                               rail(13, 0x10, 0x04)};
constexpr std::array<MonitorEntry, 2> hotswapAndModule{{
    {17, 0x0F, 0x04, moduleIdAddress, expanderChannel},
    {sequence_event::module, 0xFF, moduleGoodRegister, fpgaAddress,
     fpgaChannel},
}};

std::string eventName(uint32_t event)
{
    std::string name;
    if (!GetEventName(event, name))
    {
        ConsoleLog(ERR) << "Fail to get event name";
    }
    return name;
}

// A present OAM without module power good; absent ones count as lost too.
void reportLostModules(uint8_t seen)
{
    for (int oam = 0; oam < 8; ++oam)
    {
        if ((seen & (1U << oam)) == 0)
        {
            NvEvent(CRITICAL,
                    "ResourceEvent.1.2.1.ResourceStatusChangedCriticalOEM",
                    "OAM_" + std::to_string(oam) +
                        " module power good,Critical",
                    "", "")
                << "OAM " << oam << " cannot recieve the power good signal";
        }
    }
}

bool entryFailed(OrvaneSvcState& state, const MonitorEntry& entry, int error,
                 uint8_t value)
{
    state.sequenceEvent = entry.event;
    const std::string name = eventName(entry.event);
    ConsoleLog(ERR) << "PWRMON_PwrGd_Chk " << name << " power good fail";
    if (error != 0)
    {
        logging::AddI2CEvent(
            error, CRITICAL, "Power Sequence: " + name + " power good fail.",
            true, static_cast<uint8_t>(entry.channel), entry.address,
            entry.goodRegister, 0, nullptr, 1, &value);
    }
    return false;
}

// Whether the present OAMs have module power good. Only a board whose
// power-on saw OAM_0 good (moduleGoodMask bit 0) is judged.
bool moduleGood(OrvaneSvcState& state, const MonitorEntry& entry, int& error,
                uint8_t& value)
{
    if (!I2CSmbusReadBlock(&error, static_cast<int>(entry.channel),
                           static_cast<uint8_t>(entry.address),
                           entry.goodRegister, &value, 1))
    {
        return false;
    }
    const uint8_t present = state.oamPresentMask;
    const auto seen = static_cast<uint8_t>(value & present);
    if (seen != present && (state.moduleGoodMask & 0x01) != 0)
    {
        reportLostModules(seen);
        return false;
    }
    return true;
}

bool check(OrvaneSvcState& state, std::span<const MonitorEntry> list,
           const char* k517Line = nullptr)
{
    if (PWRMON_PwrGd_Chk(state, list))
    {
        return true;
    }
    if (k517Line != nullptr)
    {
        ConsoleLog(INFO) << k517Line;
    }
    else
    {
        PWRMON_errorHandle(state);
    }
    return false;
}

} // namespace

namespace detail
{

void PowerMonitorRound(OrvaneSvcState& state)
{
    if (!state.standbyPowerStatus || !state.basePowerStatus ||
        state.baseTransition)
    {
        return;
    }
    // A lost k517 rail is only noted; the later lists wait for next round.
    if (!check(state, fpgaRails) ||
        !check(state, k517Rails, "PowerMonitor k517 rt rail failed.") ||
        !check(state, retimerRails) || !check(state, oamRails) ||
        !check(state, hotswapAndModule))
    {
        return;
    }
    const bool ubbGood = ReadUbbFpgaSgpio(state) != 0;
    state.ubbFpgaStatus = ubbGood;
    set_property("UBBFPGAStatus", ubbGood ? 1 : 0);
    const int smc = ReadSmcFpgaSgpio();
    state.smcFpgaStatus = ubbGood ? smc == 0 : smc != -1;
    set_property("SMCFPGAStatus", state.smcFpgaStatus ? 1 : 0);
}

} // namespace detail

void PowerMonitor(OrvaneSvcState& state)
{
    ConsoleLog(INFO) << "PowerMonitor started.";
    while (true)
    {
        if (state.baseDownRequest || state.baseTransition)
        {
            platform::sleepSeconds(60);
        }
        else
        {
            platform::sleepSeconds(1);
        }
        detail::PowerMonitorRound(state);
    }
}

bool PWRMON_PwrGd_Chk(OrvaneSvcState& state, std::span<const MonitorEntry> list)
{
    for (const MonitorEntry& entry : list)
    {
        // A running sequence owns the hardware: step aside without a fault.
        if (state.baseTransition)
        {
            return false;
        }
        int error = 0;
        uint8_t value = 0;
        bool good = false;
        if (entry.event == sequence_event::module)
        {
            good = moduleGood(state, entry, error, value);
        }
        else
        {
            good =
                WaitPowerGood(state, error, static_cast<int>(entry.channel),
                              static_cast<uint8_t>(entry.address),
                              entry.goodRegister, entry.goodMask, true, value);
        }
        if (!good)
        {
            return entryFailed(state, entry, error, value);
        }
        platform::sleepSeconds(1);
    }
    return true;
}

void PWRMON_errorHandle(OrvaneSvcState& state)
{
    ConsoleLog(INFO) << "PWRMON_errorHandle started.";
    if (state.baseTransition)
    {
        return;
    }
    const uint32_t event = state.sequenceEvent;
    const std::string name = eventName(event);
    const bool fpgaRail = event >= 1 && event <= 5;
    const bool retimerRail = event >= 6 && event <= 11;
    const bool oamRail = event == 12 || event == 13;
    // Only hotswap and module faults end base power; lost rails run on.
    const bool basePower =
        event == sequence_event::hotswap || event == sequence_event::module;
    if (fpgaRail)
    {
        logging::ReportPowerCritical(true, name);
    }
    else if (retimerRail || oamRail || basePower)
    {
        ConsoleLog(ERR) << "PowerMonitor " << name << " fail.";
        if (!retimerRail)
        {
            logging::ReportPowerCritical(false, name);
        }
        if (basePower)
        {
            state.baseDownRequest = true;
        }
    }
    else
    {
        state.baseDownRequest = false;
    }
}

} // namespace orvane
