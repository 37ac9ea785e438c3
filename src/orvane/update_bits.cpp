#include "orvane/update_bits.hpp"

#include "logging/log_line.hpp"
#include "utils/i2c_ops.hpp"

#include <iomanip>

namespace orvane
{

namespace
{

using logging::level::ERR;

enum class Step
{
    read,
    write,
};

// "Fail to Read Channel 4 Slave address 0x0025 Register 0x08".
void logStepFailure(Step step, int channel, uint8_t address, uint8_t reg)
{
    ConsoleLog(ERR) << (step == Step::read ? "Fail to Read Channel "
                                           : "Fail to Write Channel ")
                    << channel << " Slave address 0x" << std::hex
                    << std::setw(4) << std::setfill('0') << unsigned{address}
                    << " Register 0x" << std::setw(2) << unsigned{reg};
}

// The mask is used as it stands: callers pass the complement to clear.
uint8_t modify(uint8_t old, uint8_t mask, bool on)
{
    return on ? static_cast<uint8_t>(old | mask)
              : static_cast<uint8_t>(old & mask);
}

} // namespace

bool UpdateBits(OrvaneSvcState& /*state*/, int& errorCode, int channel,
                uint8_t address, uint8_t reg, uint8_t mask, uint8_t& written,
                uint8_t& readback, bool on, bool verify)
{
    uint8_t old = 0;
    if (!I2CSmbusReadBlock(&errorCode, channel, address, reg, &old, 1))
    {
        logStepFailure(Step::read, channel, address, reg);
        return false;
    }
    written = modify(old, mask, on);
    if (!I2CWriteMemoryByte(&errorCode, channel, address, reg, written))
    {
        logStepFailure(Step::write, channel, address, reg);
        return false;
    }
    readback = 0;
    if (verify &&
        !I2CSmbusReadBlock(&errorCode, channel, address, reg, &readback, 1))
    {
        logStepFailure(Step::read, channel, address, reg);
        return false;
    }
    return true;
}

bool UpdateBitsRetry(OrvaneSvcState& /*state*/, int& errorCode, int tries,
                     int channel, uint8_t address, uint8_t reg, uint8_t mask,
                     uint8_t& written, uint8_t& readback, bool on, bool verify,
                     bool check, const std::string& label)
{
    const auto bus = static_cast<unsigned>(channel);
    uint8_t old = 0;
    if (!WriteReadWithRetry(&errorCode, tries, bus, address, reg, 0, nullptr, 1,
                            &old, check, label))
    {
        logStepFailure(Step::read, channel, address, reg);
        return false;
    }
    written = modify(old, mask, on);
    if (!WriteReadWithRetry(&errorCode, tries, bus, address, reg, 1, &written,
                            0, nullptr, check, label))
    {
        logStepFailure(Step::write, channel, address, reg);
        return false;
    }
    readback = 0;
    if (verify && !WriteReadWithRetry(&errorCode, tries, bus, address, reg, 0,
                                      nullptr, 1, &readback, check, label))
    {
        logStepFailure(Step::read, channel, address, reg);
        return false;
    }
    return true;
}

} // namespace orvane
