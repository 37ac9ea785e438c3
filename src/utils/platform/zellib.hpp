#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

// The record of one I2C failure, laid out as the closed logging library
// takes it. It lives in the global namespace because the library's symbol
// names carry it.
struct I2CLogData
{
    uint8_t bus = 0;
    uint16_t address = 0;
    uint16_t reg = 0;
    uint32_t readLength = 0;
    uint32_t writeLength = 0;
    uint8_t* readBuffer = nullptr;
    uint8_t* writeBuffer = nullptr;
    bool noAccess = false;
    bool readFailed = false;
    bool writeFailed = false;
    bool otherFailure = false;
    std::string message;
};
// The closed library reads this record by its own layout, on the 32-bit
// target as on the 64-bit one.
static_assert(offsetof(I2CLogData, address) == 2);
static_assert(offsetof(I2CLogData, reg) == 4);
static_assert(offsetof(I2CLogData, readLength) == 8);
static_assert(offsetof(I2CLogData, writeLength) == 12);
static_assert(offsetof(I2CLogData, readBuffer) == 16);
static_assert(offsetof(I2CLogData, noAccess) == 16 + 2 * sizeof(void*));

namespace orvane::platform
{

// The five calls of the closed logging library.
class Zellib
{
  public:
    virtual ~Zellib() = default;

    virtual int addLog(const std::string& message, int level,
                       const std::string& messageId, const std::string& arg1,
                       const std::string& arg2, const std::string& arg3) = 0;
    virtual int addNvLog(const std::string& message, int level,
                         const std::string& messageId, const std::string& arg1,
                         const std::string& arg2, const std::string& arg3) = 0;
    virtual int addI2cLog(int level, I2CLogData* data, bool flag) = 0;
    virtual std::pair<int, std::string> logDump(const std::string& a,
                                                const std::string& b,
                                                const std::string& c,
                                                const double& value) = 0;
    virtual void setBootTimeFinish(bool value) = 0;
};

} // namespace orvane::platform
