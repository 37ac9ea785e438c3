#include "orvane/sgpio.hpp"

#include "detail/board_constants.hpp"
#include "logging/log_line.hpp"
#include "utils/i2c_ops.hpp"

#include <string>

namespace orvane
{

namespace
{

using namespace board;
using logging::level::ERR;
using logging::level::INFO;

constexpr uint8_t sgpioRegister = 0xE0;
// Bits 0x08 and 0x80 carry no fault.
constexpr uint8_t faultBits = 0x77;

constexpr uint16_t efuseRegister = 0xF24B;

// One FPGA's SGPIO status slave and the name that its texts carry.
struct SgpioSource
{
    unsigned channel;
    unsigned address;
    std::string name;
};

const SgpioSource ubbSource{fpgaChannel, fpgaAddress, "UBB"};
const SgpioSource smcSource{smcStatusChannel, smcStatusAddress, "SMC"};

bool readStatus(const SgpioSource& source, uint8_t& value)
{
    int event = 0;
    const std::string what = "read " + source.name + " FPGA SGPIO status";
    if (WriteReadWithRetry(&event, tries, source.channel, source.address,
                           sgpioRegister, 0, nullptr, 1, &value, true,
                           "Power Monitor: Fail to " + what))
    {
        return true;
    }
    ConsoleLog(ERR) << "Fail to " << what << ".";
    return false;
}

// Writing the set bits back clears them.
bool clearStatus(const SgpioSource& source, uint8_t value)
{
    int event = 0;
    const std::string what =
        "clear the fault code in " + source.name + " FPGA SGPIO status";
    if (WriteReadWithRetry(&event, tries, source.channel, source.address,
                           sgpioRegister, 1, &value, 0, nullptr, true,
                           "Power Monitor: Fail to " + what))
    {
        return true;
    }
    ConsoleLog(ERR) << "Fail to " << what << ".";
    return false;
}

// 0 no fault, 1 a fault was cleared, 2 clearing failed, -1 read failed.
int checkStatus(const SgpioSource& source)
{
    uint8_t value = 0;
    if (!readStatus(source, value))
    {
        return -1;
    }
    if ((value & faultBits) == 0)
    {
        return 0;
    }
    return clearStatus(source, value) ? 1 : 2;
}

void initStatus(const SgpioSource& source)
{
    ConsoleLog(INFO) << "Initialize the " << source.name
                     << " FPGA SGPIO status.";
    uint8_t value = 0;
    if (!readStatus(source, value))
    {
        return;
    }
    ConsoleLog(INFO) << source.name
                     << " FPGA SGPIO status before clear it by writing bit by "
                        "1. Value: 0x"
                     << std::hex << num(value);
    int event = 0;
    uint8_t readback = 0;
    const std::string what = "write/read " + source.name + " FPGA SGPIO status";
    if (!WriteReadWithRetry(&event, tries, source.channel, source.address,
                            sgpioRegister, 1, &value, 1, &readback, true,
                            "Power Monitor: Fail to " + what))
    {
        ConsoleLog(ERR) << "Fail to " << what << ".";
        return;
    }
    ConsoleLog(INFO) << "Success to clear the bits of " << source.name
                     << " FPGA SGPIO status. Current status: 0x" << std::hex
                     << num(readback);
}

} // namespace

int ReadUbbFpgaSgpio(OrvaneSvcState& /*state*/)
{
    return checkStatus(ubbSource) == 0 ? 1 : 0;
}

int ReadSmcFpgaSgpio()
{
    return checkStatus(smcSource);
}

void InitSmcFpgaSgpio()
{
    initStatus(smcSource);
}

void InitUbbFpgaSgpio()
{
    initStatus(ubbSource);
}

uint32_t CheckRmEfuseFault(OrvaneSvcState& /*state*/)
{
    for (size_t oam = 0; oam < rmChannels.size(); ++oam)
    {
        int event = 0;
        uint8_t value = 0;
        if (!I2CReadMemoryBlock16(&event, rmChannels[oam], rmAddress,
                                  efuseRegister, 1, &value))
        {
            ConsoleLog(ERR)
                << "Fail to read RM" << oam << "(channel " << rmChannels[oam]
                << ") slave address 0x56 register address 0xf24b";
            return 0;
        }
        if (value != 0)
        {
            ConsoleLog(ERR)
                << "RM" << oam << " detect the eFuse state fault,eFuse value 0x"
                << std::hex << num(value);
            return 0;
        }
    }
    return 1;
}

} // namespace orvane
