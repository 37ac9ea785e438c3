#include "orvane/base_attempt_checks.hpp"

#include "detail/board_constants.hpp"
#include "logging/events.hpp"
#include "logging/log_line.hpp"
#include "orvane/orvane_svc_state.hpp"
#include "utils/i2c_ops.hpp"

#include <string>

namespace orvane
{

namespace
{

using namespace logging;
using namespace board;

constexpr const char* criticalOem =
    "ResourceEvent.1.2.1.ResourceStatusChangedCriticalOEM";
constexpr const char* retryFailOem = "ResourceEvent.1.2.1.ResourceRetryFailOEM";

struct Reading
{
    bool ok;
    int event;
    uint8_t value;
};

Reading readByte(int bus, uint8_t address, uint8_t reg)
{
    Reading reading{false, 0, 0};
    reading.ok =
        I2CSmbusReadBlock(&reading.event, bus, address, reg, &reading.value, 1);
    return reading;
}

Reading readFpga(uint8_t reg)
{
    return readByte(fpgaChannel, fpgaAddress, reg);
}

Reading readHotswapGood()
{
    return readByte(expanderChannel, moduleIdAddress, hotswapGoodRegister);
}

void reportFailedRead(Reading& reading, const std::string& name, uint8_t reg,
                      int retryCount, uint32_t event)
{
    ConsoleLog(level::INFO) << "Fail to read " << name;
    if (reading.event == 0)
    {
        return;
    }
    std::string text = "Power Sequence: Fail to read " + name + ". Retry " +
                       std::to_string(retryCount);
    AddI2CEvent(reading.event,
                retryCount == 4 ? level::CRITICAL : level::WARNING, text,
                event == sequence_event::basePowerOn, fpgaChannel, fpgaAddress,
                reg, 0, nullptr, 1, &reading.value);
}

void checkCtf(int retryCount, uint32_t event)
{
    Reading ctf = readFpga(ctfRegister);
    if (!ctf.ok)
    {
        reportFailedRead(ctf, "CTF Register 0xC0", ctfRegister, retryCount,
                         event);
        return;
    }
    // With base power on, CTF belongs to the power monitor.
    if (ctf.value == 0xFF || event == sequence_event::basePowerOn)
    {
        return;
    }
    for (int n = 0; n < 8; ++n)
    {
        if ((ctf.value & (1U << n)) == 0)
        {
            NvEvent(level::CRITICAL,
                    "ResourceEvent.1.2.1.TemperatureAssertCriticalFaultOEM",
                    "OAM_" + std::to_string(n), "", "")
                << "Power Sequence: OAM_" << n
                << " triggered CTF Register 0xC0";
        }
    }
}

void checkModuleGood(int retryCount, uint32_t event)
{
    Reading module = readFpga(moduleGoodRegister);
    if (!module.ok)
    {
        reportFailedRead(module, "Module Power Good Register 0x61",
                         moduleGoodRegister, retryCount, event);
        return;
    }
    uint8_t shown = module.value;
    if (retryCount == 1)
    {
        shown |= readFpga(prsntRegister).value;
        for (int n = 0; shown != 0xFF && n < 8; ++n)
        {
            if ((shown & (1U << n)) == 0)
            {
                NvEvent(level::CRITICAL, criticalOem,
                        "OAM_" + std::to_string(n) +
                            " module power good,Critical",
                        "", "")
                    << "OAM " << n << " cannot recieve the power good signal";
            }
        }
    }
    ConsoleLog(level::INFO) << "Module Power Good Register 0x61 value is "
                            << std::hex << static_cast<unsigned>(shown);
}

void checkHotswapGood()
{
    Reading hotswap = readHotswapGood();
    if (!hotswap.ok || (hotswap.value & hotswapGoodMask) == hotswapGoodMask)
    {
        return;
    }
    NvEvent(level::CRITICAL, criticalOem,
            "HSC power good,Critical Value " + ToHexString(hotswap.value), "",
            "")
        << "Hotswap power good status from I/O expanders - Unexpected "
           "reading value (Not equal 0x0f). I2C bus 14; Slave address 0x27; "
           "Register offset 0x04; Reading value: 0x"
        << std::hex << static_cast<unsigned>(hotswap.value);
}

} // namespace

void CheckAfterBaseAttempt(int retryCount, uint32_t event)
{
    checkCtf(retryCount, event);
    checkModuleGood(retryCount, event);
    if (retryCount == 1)
    {
        checkHotswapGood();
    }
}

void ReportRetryExhausted(int retryCount)
{
    const std::string retries =
        ",to boot," + std::to_string(retryCount) + " retries";
    Reading hotswap = readHotswapGood();
    if (hotswap.ok && (hotswap.value & hotswapGoodMask) != hotswapGoodMask)
    {
        NvEvent(level::CRITICAL, retryFailOem, "HSC power good" + retries, "",
                "")
            << "Hotswap power good value: 0x" << std::hex
            << static_cast<unsigned>(hotswap.value);
    }
    uint8_t present = readFpga(prsntRegister).value;
    uint8_t module = readFpga(moduleGoodRegister).value;
    uint8_t shown = static_cast<uint8_t>((module & ~present) | present);
    for (int n = 0; shown != 0xFF && n < 8; ++n)
    {
        if ((shown & (1U << n)) == 0)
        {
            NvEvent(level::CRITICAL, retryFailOem,
                    "OAM_" + std::to_string(n) + " module power good" + retries,
                    "", "")
                << "OAM " << n
                << " cannot recieve the power good signal after retries";
        }
    }
}

} // namespace orvane
