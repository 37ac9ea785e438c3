#include "orvane/rail_engine.hpp"

#include "detail/board_constants.hpp"
#include "logging/events.hpp"
#include "logging/log_line.hpp"
#include "orvane/update_bits.hpp"
#include "utils/hex_text.hpp"
#include "utils/i2c_ops.hpp"
#include "utils/platform/platform.hpp"

#include <array>
#include <chrono>
#include <iomanip>
#include <sstream>

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::ERR;
using logging::level::INFO;
using logging::level::WARNING;

constexpr int attemptsPerRail = 3;
constexpr auto powerGoodTimeout = std::chrono::milliseconds(2000);
constexpr unsigned settleMilliseconds = 100;
constexpr unsigned retryPauseSeconds = 1;

struct NamedEvent
{
    uint32_t number;
    const char* name;
};

constexpr std::array<NamedEvent, 16> eventNames{{
    {1, "VCCINT_FPGA"},
    {2, "VCC_BRAM_FPGA"},
    {3, "VCCAUX_FPGA"},
    {4, "SYS_1V8_FPGA"},
    {5, "UTIL_3V3_FPGA"},
    {6, "0V9_AD_RT01"},
    {7, "0V9_AD_RT23"},
    {8, "0V9_AD_RT45"},
    {9, "0V9_AD_RT67"},
    {10, "1V8_RT03"},
    {11, "1V8_RT47"},
    {12, "P3V3_OAM_03"},
    {13, "P3V3_OAM_47"},
    {17, "Hotswap controller"},
    {18, "Module"},
    {19, ""}, // base power on: a stage without a rail
}};

// A power good register that both power states expect fully set, with the
// value it is compared with and the texts of its critical event. The
// compared values differ from those the texts name; both stay as they are.
struct WatchedRegister
{
    int channel;
    uint8_t address;
    uint8_t reg;
    uint8_t compareMask;
    uint8_t expected;
    const char* argument;
    const char* text;
};

constexpr std::array<WatchedRegister, 3> watchedRegisters{{
    {board::expanderChannel, board::moduleIdAddress, 0x04, 0x0F, 0x0F,
     "HSC power good,Critical Value ",
     "Hotswap power good status from I/O expanders - Unexpected reading "
     "value (Not equal 0x0f). I2C bus 14; Slave address 0x27; Register "
     "offset 0x04; Reading value: 0x"},
    {board::smcChannel, board::smcAddress, 0x03, 0xFF, 0xFF,
     "UBB power good,Critical Value ",
     "UBB VR power good status from I/O expanders - Unexpected reading "
     "value (Not equal 0xcf). I2C bus 4; Slave address 0x25; Register "
     "offset 0x03; Reading value: 0x"},
    {board::smcChannel, board::smcAddress, 0x04, 0xFF, 0xFD,
     "UBB power good,Critical Value ",
     "UBB VR power good status from I/O expanders - Unexpected reading "
     "value (Not equal 0xf9). I2C bus 4; Slave address 0x25; Register "
     "offset 0x04; Reading value: 0x"},
}};

// While the board runs, an unexpected power good reading is worth an event
// whatever the waiting caller makes of it.
void reportUnexpectedReading(int channel, uint8_t address, uint8_t reg,
                             uint8_t raw)
{
    for (const WatchedRegister& watched : watchedRegisters)
    {
        if (watched.channel != channel || watched.address != address ||
            watched.reg != reg)
        {
            continue;
        }
        if ((raw & watched.compareMask) != watched.expected)
        {
            NvEvent(CRITICAL,
                    "ResourceEvent.1.2.1.ResourceStatusChangedCriticalOEM",
                    watched.argument + logging::ToHexString(raw), "", "")
                << watched.text << std::hex << unsigned{raw};
        }
        return;
    }
}

// The name of an event; a failed lookup leaves it empty.
std::string eventName(uint32_t event)
{
    std::string name;
    if (!GetEventName(event, name))
    {
        ConsoleLog(ERR) << "Fail to get event name";
    }
    return name;
}

// Where one rail's attempt stopped, and the bytes its enable write left.
struct Attempt
{
    enum class Outcome
    {
        good,
        enableFailed,
        noPowerGood,
    };
    Outcome outcome = Outcome::good;
    uint8_t written = 0;
    uint8_t readback = 0;
};

struct RailTarget
{
    int channel;
    uint8_t address;
    uint8_t bank;
    bool on;
};

Attempt switchOnce(OrvaneSvcState& state, int& errorCode, const RailEntry& rail,
                   const RailTarget& target)
{
    Attempt attempt;
    if (!UpdateBits(state, errorCode, target.channel, target.address,
                    target.bank, rail.enableMask, attempt.written,
                    attempt.readback, target.on, true))
    {
        attempt.outcome = Attempt::Outcome::enableFailed;
        return attempt;
    }
    ConsoleLog(INFO) << "Addr 0x" << HexText(target.address, 4) << " Bank 0x"
                     << HexText(target.bank, 2) << " Value is 0x"
                     << HexText(attempt.readback, 2);
    platform::sleepMilliseconds(settleMilliseconds);
    uint8_t value = 0;
    if (!WaitPowerGood(state, errorCode, target.channel, target.address,
                       rail.goodRegister, rail.goodMask, target.on, value))
    {
        attempt.outcome = Attempt::Outcome::noPowerGood;
    }
    return attempt;
}

void addRailI2CEvent(int errorCode, int level, const std::string& message,
                     const RailTarget& target, uint8_t reg, Attempt& attempt)
{
    logging::AddI2CEvent(errorCode, level, message, true,
                         static_cast<uint8_t>(target.channel), target.address,
                         reg, 1, &attempt.written, 1, &attempt.readback);
}

// Reports a failed attempt. True when the rail has had its last attempt.
bool reportFailure(OrvaneSvcState& state, int errorCode, const RailEntry& rail,
                   const RailTarget& target, int number, Attempt& attempt)
{
    const bool enable = attempt.outcome == Attempt::Outcome::enableFailed;
    // Only a rail that was switched but never came good marks how far the
    // sequence got: a failed write leaves the mark where it was.
    if (!enable)
    {
        state.sequenceEvent = rail.event;
    }
    const std::string name = eventName(rail.event);
    if (!enable)
    {
        platform::sleepSeconds(retryPauseSeconds);
    }
    const std::string what =
        enable ? " is failed to enable" : " cannot get the power good signal";
    const uint8_t reg = enable ? target.bank : rail.goodRegister;
    const std::string message = "Power Sequence: " + name + what + ". Retry ";

    if (number == attemptsPerRail)
    {
        ConsoleLog(ERR) << name << "fail after a third";
        if (errorCode != 0)
        {
            addRailI2CEvent(errorCode, CRITICAL, message + "3", target, reg,
                            attempt);
        }
        return true;
    }
    if (enable)
    {
        ConsoleLog(ERR) << name << " Fail:" << name << " is failed to enable";
        if (errorCode != 0)
        {
            ConsoleLog(ERR) << name << " Fail by i2c error";
        }
    }
    else
    {
        ConsoleLog(ERR) << name << " Fail: Cannot get the power good signal";
    }
    if (errorCode != 0)
    {
        addRailI2CEvent(errorCode, WARNING, message + std::to_string(number),
                        target, reg, attempt);
    }
    ConsoleLog(ERR) << name << " Fail: Retry " << number;
    return false;
}

} // namespace

bool GetEventName(uint32_t event, std::string& name)
{
    name.clear();
    for (const NamedEvent& entry : eventNames)
    {
        if (entry.number == event)
        {
            name = entry.name;
            return true;
        }
    }
    ConsoleLog(ERR) << "There is no matched event number";
    return false;
}

bool WaitPowerGood(OrvaneSvcState& state, int& errorCode, int channel,
                   uint8_t address, uint8_t reg, uint8_t mask, bool on,
                   uint8_t& value)
{
    value = on ? 0 : 1;
    const auto start = platform::clock().steadyNow();
    // No sleep between reads: the bus transfers set the pace.
    for (;;)
    {
        uint8_t raw = 0;
        if (!I2CSmbusReadBlock(&errorCode, channel, address, reg, &raw, 1))
        {
            ConsoleLog(ERR) << "Read i2c bus " << channel << " slave address 0x"
                            << std::hex << unsigned{address} << " register 0x"
                            << unsigned{reg} << " failed.";
            return false;
        }
        if (state.standbyPowerStatus && state.basePowerStatus && errorCode == 0)
        {
            reportUnexpectedReading(channel, address, reg, raw);
        }
        value = raw & mask;
        // Any bit of the mask is enough for on.
        if (on == (value != 0))
        {
            return true;
        }
        if (platform::clock().steadyNow() - start > powerGoodTimeout)
        {
            return false;
        }
    }
}

bool EnableRails(OrvaneSvcState& state, int& errorCode, RailList rails,
                 uint8_t address, uint8_t bank, int channel, bool on)
{
    if (rails.empty())
    {
        return false;
    }
    const RailTarget target{channel, address, bank, on};
    for (const RailEntry& rail : rails)
    {
        for (int number = 1;; ++number)
        {
            Attempt attempt = switchOnce(state, errorCode, rail, target);
            if (attempt.outcome == Attempt::Outcome::good)
            {
                break;
            }
            if (reportFailure(state, errorCode, rail, target, number, attempt))
            {
                return false;
            }
        }
    }
    return true;
}

} // namespace orvane
