#include "logging/events.hpp"

#include "logging/log_line.hpp"
#include "logging/i2c_event.hpp"
#include "utils/platform/platform.hpp"

#include <iostream>
#include <sstream>

namespace orvane::logging
{

namespace
{

// Sets the one flag of the record that names the failure; false when the
// code has no record form.
bool markFailure(int code, I2CLogData& record)
{
    switch (code)
    {
        case I2C_EVENT_OPEN:
        case I2C_EVENT_SLAVE_ADDRESS:
            record.noAccess = true;
            return true;
        case I2C_EVENT_WRITE:
            record.writeFailed = true;
            return true;
        case I2C_EVENT_READ:
            record.readFailed = true;
            return true;
        case I2C_EVENT_DEVICE_STEP:
            record.otherFailure = true;
            return true;
        default:
            return false;
    }
}

struct TransitionText
{
    const char* ubbMessage;
    const char* ubbResource;
    const char* oamMessage;
    const char* oamResource;
};

TransitionText transitionText(bool on, bool standby)
{
    if (standby)
    {
        return on ? TransitionText{"Power Sequence: UBB StandBy Power On",
                                   "UBB standby",
                                   "Power Sequence: OAM StandBy Power On",
                                   "OAM standby"}
                  : TransitionText{
                        "Power Sequence: UBB StandBy Power Off", "UBB standby",
                        "Power Sequence: OAM StandBy Power Off", "OAM standby"};
    }
    return on ? TransitionText{"Power Sequence: UBB Base Power On", "UBB base",
                               "Power Sequence: OAM Base Power On", "OAM base"}
              : TransitionText{"Power Sequence: UBB Base Power Off", "UBB base",
                               "Power Sequence: OAM Base Power Off",
                               "OAM base"};
}

} // namespace

int AddI2CEvent(int code, int level, const std::string& message, bool flag,
                uint8_t bus, uint16_t address, uint8_t reg,
                uint32_t writeLength, uint8_t* writeBuffer, uint32_t readLength,
                uint8_t* readBuffer)
{
    I2CLogData record;
    if (!markFailure(code, record))
    {
        std::cerr << "Undefined I2C_Event code" << std::endl;
        return -1;
    }
    record.bus = bus;
    record.address = address;
    record.reg = reg;
    record.readLength = readLength;
    record.writeLength = writeLength;
    record.readBuffer = readBuffer;
    record.writeBuffer = writeBuffer;
    record.message = message;
    return platform::zellib().addI2cLog(level, &record, flag);
}

int LogPowerTransition(bool on, bool standby)
{
    const std::string id = std::string("ResourceEvent.1.2.1.") +
                           (on ? "ResourcePoweringOn" : "ResourcePoweringOff");
    const TransitionText text = transitionText(on, standby);
    auto& library = platform::zellib();
    library.addNvLog(text.ubbMessage, level::INFO, id, text.ubbResource, "",
                     "");
    library.addNvLog(text.oamMessage, level::INFO, id, text.oamResource, "",
                     "");
    library.addLog(text.ubbMessage, level::INFO, id, text.ubbResource, "", "");
    return library.addLog(text.oamMessage, level::INFO, id, text.oamResource,
                          "", "");
}

int ReportPowerCritical(bool isUbb, const std::string& detail)
{
    const std::string id =
        isUbb ? "UBBPowerStatusCritical" : "OAMPowerStatusCritical";
    const double noValue = 0.0;
    auto& library = platform::zellib();
    std::string dumpPath =
        library
            .logDump(isUbb ? "UBBPowerStatus" : "OAMPowerStatus", "Critical",
                     detail, noValue)
            .second;
    std::string message = std::string("Power Sequence: ") +
                          (isUbb ? "UBB power " : "OAM power ") + detail +
                          " goes down or status critical fault.";
    return library.addNvLog(message, level::CRITICAL, id, detail, "", dumpPath);
}

std::string TriggerLogDump(const std::string& a, const std::string& b,
                           const std::string& c, const double& value)
{
    auto [code, path] = platform::zellib().logDump(a, b, c, value);
    if (code != 0)
    {
        ConsoleLog(level::WARNING)
            << "orvane tigger log dump fail. code: " << code;
    }
    return path;
}

std::string ToHexString(uint64_t value)
{
    std::ostringstream out;
    out << "0x" << std::uppercase << std::hex << value;
    return out.str();
}

} // namespace orvane::logging
