#include "orvane/dac_check.hpp"

#include "detail/board_constants.hpp"
#include "logging/log_line.hpp"
#include "orvane/product_scan.hpp"
#include "utils/i2c_ops.hpp"
#include "utils/platform/platform.hpp"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>

namespace orvane
{

namespace
{

using namespace board;
using namespace logging::level;

constexpr uint8_t dacAddress = 0x60;
constexpr uint8_t dacBlock = 0x60;
constexpr uint8_t dacBlockLength = 5;

struct DacSetting
{
    uint16_t expected; // bytes 3 and 4 of the block, low byte first
    std::array<uint8_t, 2> update;
};

// Only these UBB products have a DAC setting to hold the OAMs to.
std::optional<DacSetting> settingFor(int product)
{
    switch (product)
    {
        case productKV30:
            return DacSetting{0xE002, {0x2E, 0x00}};
        case productKV35:
            return DacSetting{0x0604, {0x40, 0x60}};
        default:
            return std::nullopt;
    }
}

// The logs show the setting with its bytes exchanged.
unsigned swapped(uint16_t value)
{
    return static_cast<uint16_t>((value >> 8) | (value << 8));
}

std::string errnoText(int error)
{
    return std::strerror(error);
}

// Selects the OAM and checks its DAC; false ends the walk.
bool checkOam(int fd, int oam, const std::optional<DacSetting>& setting)
{
    auto& i2c = platform::i2c();
    ConsoleLog(INFO) << "Writing to the OAM mux, for DAC config check ";
    if (i2c.setSlave(fd, oamMuxAddress) < 0)
    {
        ConsoleLog(ERR) << "Failed to set MUX address: " << errnoText(errno);
        return false;
    }
    int32_t r = i2c.smbusWriteByte(fd, static_cast<uint8_t>(1U << oam));
    if (r < 0)
    {
        ConsoleLog(ERR) << "Failed to write to MUX: " << errnoText(-r);
        return false;
    }
    if (i2c.setSlave(fd, dacAddress) < 0)
    {
        ConsoleLog(ERR) << "Failed to set device address: " << errnoText(errno);
        return false;
    }
    std::array<uint8_t, dacBlockLength> block{};
    r = i2c.smbusReadI2cBlockData(fd, dacBlock, dacBlockLength, block.data());
    if (r < 0)
    {
        ConsoleLog(ERR) << "Failed to read from device: " << errnoText(-r);
        return false;
    }
    if (!setting)
    {
        return true;
    }
    const auto value = static_cast<uint16_t>(block[3] | (block[4] << 8));
    if (value == setting->expected)
    {
        ConsoleLog(INFO) << "DAC value  matches as expected. Skipping DAC "
                            "update "
                         << swapped(value);
        return true;
    }
    ConsoleLog(INFO) << " DAC value doesn't match expected.read value is"
                     << swapped(value);
    ConsoleLog(INFO) << " Performing DAC update with value "
                     << swapped(setting->expected);
    r = i2c.smbusWriteI2cBlockData(fd, dacBlock,
                                   static_cast<uint8_t>(setting->update.size()),
                                   setting->update.data());
    if (r < 0)
    {
        ConsoleLog(ERR) << "Failed to write to device: " << errnoText(-r);
        return false;
    }
    return true;
}

} // namespace

bool CheckDacConfig(OrvaneSvcState&)
{
    int event = 0;
    uint8_t present = 0;
    if (!WriteReadWithRetry(
            &event, tries, fpgaChannel, fpgaAddress, prsntRegister, 0, nullptr,
            1, &present, true,
            "Power Sequence Base Power On: Read OAM PRSNT signal to detect "
            "OAM"))
    {
        ConsoleLog(ERR) << "Fail to read OAM PRSNT signal to detect OAM";
        return false;
    }
    // From here on the result is that of the read: a DAC that can't be
    // reached is only logged.
    auto& i2c = platform::i2c();
    int fd = i2c.open("/dev/i2c-" + std::to_string(oamChannel), O_RDWR);
    if (fd < 0)
    {
        ConsoleLog(ERR) << "Failed to open the I2C bus: " << errnoText(errno);
        return true;
    }
    const auto setting = settingFor(productTable[ubbProductIndex]);
    for (int oam = 0; oam < 8; ++oam)
    {
        // PRSNT is low for a module in its slot.
        if ((present & (1U << oam)) == 0 && !checkOam(fd, oam, setting))
        {
            break;
        }
    }
    i2c.close(fd);
    return true;
}

} // namespace orvane
