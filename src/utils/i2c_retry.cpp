#include "logging/events.hpp"
#include "logging/log_line.hpp"
#include "utils/hex_text.hpp"
#include "utils/i2c_channel.hpp"
#include "logging/i2c_event.hpp"
#include "utils/i2c_ops.hpp"
#include "utils/platform/platform.hpp"

#include <iomanip>
#include <sstream>

namespace orvane
{

using logging::level::ERR;

namespace
{

// A length without its buffer, or a buffer without its length.
bool halfGiven(uint8_t length, const uint8_t* buffer)
{
    return (length == 0) != (buffer == nullptr);
}

// One complete attempt: open, the write part, the read part. The channel
// is left for the caller to close, also when the open failed.
bool attemptOnce(I2CChannel& channel, int* event, uint8_t address, uint8_t reg,
                 uint8_t writeLength, uint8_t* writeBuffer, uint8_t readLength,
                 uint8_t* readBuffer)
{
    if (!channel.OpenChannel(event))
    {
        ConsoleLog(ERR) << "Fail to OpenChannel";
        return false;
    }
    if (writeLength != 0 && writeBuffer != nullptr &&
        !channel.WriteMemoryBlock(event, address, reg, writeLength,
                                  writeBuffer))
    {
        ConsoleLog(ERR) << "Write 0x" << HexText(reg, 2) << " fail.";
        return false;
    }
    if (readLength != 0 && readBuffer != nullptr &&
        !channel.SmbusReadBlock(event, address, reg, readBuffer, readLength))
    {
        ConsoleLog(ERR) << "Read 0x" << HexText(reg, 2) << " fail.";
        return false;
    }
    return true;
}

} // namespace

bool WriteReadWithRetry(int* event, int retries, unsigned bus, unsigned address,
                        uint8_t reg, uint8_t writeLength, uint8_t* writeBuffer,
                        uint8_t readLength, uint8_t* readBuffer,
                        bool logFailure, const std::string& label)
{
    if (halfGiven(writeLength, writeBuffer) ||
        halfGiven(readLength, readBuffer))
    {
        ConsoleLog(ERR) << "Call the function - WriteReadWithRetry improperly.";
        *event = I2C_EVENT_NONE;
        return false;
    }
    if (address > 0x7F || bus > 15)
    {
        ConsoleLog(ERR) << "Parameter over range when call the function - "
                           "WriteReadWithRetry.";
        *event = I2C_EVENT_NONE;
        return false;
    }
    const std::string failureText =
        logFailure && !label.empty() ? label + " failure." : "";
    const auto slave = static_cast<uint8_t>(address);

    for (int attempt = 1;; ++attempt)
    {
        I2CChannel channel;
        channel.bus = static_cast<int>(bus);
        if (attemptOnce(channel, event, slave, reg, writeLength, writeBuffer,
                        readLength, readBuffer))
        {
            platform::i2c().close(channel.fd);
            return true;
        }
        // retries of 0 or less makes this first attempt the last one.
        const bool last = attempt >= retries;
        if (logFailure && *event != I2C_EVENT_NONE)
        {
            logging::AddI2CEvent(
                *event,
                last ? logging::level::CRITICAL : logging::level::WARNING,
                failureText + " Retry " + std::to_string(attempt), true,
                static_cast<uint8_t>(bus), slave, reg, writeLength, writeBuffer,
                readLength, readBuffer);
        }
        // Also after a failed open, where fd holds -1.
        platform::i2c().close(channel.fd);
        if (last)
        {
            return false;
        }
    }
}

} // namespace orvane
