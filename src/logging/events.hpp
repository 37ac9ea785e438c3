#pragma once

#include <cstdint>
#include <string>

namespace orvane::logging
{

// Records one I2C failure with the logging library; -1 for a code that has
// no record form (0 and 3 among them).
int AddI2CEvent(int code, int level, const std::string& message, bool flag,
                uint8_t bus, uint16_t address, uint8_t reg,
                uint32_t writeLength, uint8_t* writeBuffer, uint32_t readLength,
                uint8_t* readBuffer);

// The four entries of a UBB and OAM power transition.
int LogPowerTransition(bool on, bool standby);

// A dump and a critical non-volatile entry for a power loss.
int ReportPowerCritical(bool isUbb, const std::string& detail);

std::string TriggerLogDump(const std::string& a, const std::string& b,
                           const std::string& c, const double& value);

// "0x" and upper-case hex digits without padding.
std::string ToHexString(uint64_t value);

} // namespace orvane::logging
