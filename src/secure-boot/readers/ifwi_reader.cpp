#include "secure-boot/ifwi_reader.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/flash_dump.hpp"
#include "secure-boot/hash_file.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/secure_boot_board.hpp"
#include "utils/hex_text.hpp"
#include "utils/platform/platform.hpp"

#include <fcntl.h>

#include <cstring>
#include <exception>
#include <string>

namespace orvane
{

namespace
{

using logging::level::ERR;
using logging::level::INFO;
namespace board = secure_boot_board;

const std::string bindFile(board::spiBindFile);
const std::string unbindFile(board::spiUnbindFile);

// "echo <device> > <file>": false when no shell could run it.
bool WriteDriverFile(const std::string& file)
{
    return platform::shell().system("echo " + std::string(board::spiDevice) +
                                    " > " + file) >= 0;
}

void Unbind()
{
    if (WriteDriverFile(unbindFile))
    {
        ConsoleLog(INFO) << "Unbind to " << unbindFile;
    }
    else
    {
        ConsoleLog(ERR) << "Failed unbind to " << unbindFile;
    }
}

// The UBB FPGA's registers for the read, on a descriptor closed on every
// way out.
class FpgaRegisters
{
  public:
    FpgaRegisters() = default;
    FpgaRegisters(const FpgaRegisters&) = delete;
    FpgaRegisters& operator=(const FpgaRegisters&) = delete;
    ~FpgaRegisters()
    {
        if (fd >= 0)
        {
            platform::i2c().close(fd);
        }
    }

    bool open()
    {
        fd = platform::i2c().open(
            "/dev/i2c-" + std::to_string(board::ubbFpgaBus), O_RDWR);
        if (fd < 0)
        {
            ConsoleLog(ERR) << "Fail to open I2C bus";
            return false;
        }
        if (platform::i2c().setSlave(fd, board::ubbFpgaAddress) < 0)
        {
            ConsoleLog(ERR)
                << "Failed to acquire bus access and/or talk to slave";
            return false;
        }
        return true;
    }

    bool read(uint8_t reg, uint8_t& value, const char* failure)
    {
        int32_t result = platform::i2c().smbusReadByteData(fd, reg);
        if (result < 0)
        {
            ConsoleLog(ERR) << failure;
            return false;
        }
        value = static_cast<uint8_t>(result);
        return true;
    }

    bool write(uint8_t reg, uint8_t value, const char* failure)
    {
        if (platform::i2c().smbusWriteByteData(fd, reg, value) < 0)
        {
            ConsoleLog(ERR) << failure;
            return false;
        }
        return true;
    }

  private:
    int fd = -1;
};

// Hands the SPI bus from the UBB FPGA's flash to the OAMs'; the line is
// held until the handle goes.
std::unique_ptr<platform::GpioLine> ReleaseSpiSelect()
{
    auto line = platform::gpio().findLine(std::string(board::spiSelectLine));
    if (!line)
    {
        ConsoleLog(ERR) << "Failed to find GPIOH0 line";
        return nullptr;
    }
    try
    {
        line->request("ReadIFWIImage", platform::GpioDirection::output, 0, 0);
    }
    catch (const std::exception&)
    {
        ConsoleLog(ERR) << "Error setting GPIOH0 as Output";
        return nullptr;
    }
    try
    {
        line->setValue(0);
    }
    catch (const std::exception&)
    {
        ConsoleLog(ERR) << "Failed to set value for GPIOH0";
        return nullptr;
    }
    return line;
}

// Binds the driver to the routed flashes and copies the stream; the
// driver is unbound again on both ways out.
bool DumpStream(ImageProcessStrategy& strategy, FpgaRegisters& fpga)
{
    if (!WriteDriverFile(bindFile))
    {
        ConsoleLog(ERR) << "Failed to bind " << bindFile;
        Unbind();
        return false;
    }
    ConsoleLog(INFO) << "Bind to " << bindFile;
    platform::sleepSeconds(1);
    if (!fpga.write(board::misoDifferenceReg, 0xFF,
                    "Fail to write data 0xff at Slave address 0x56 reg 0x42"))
    {
        Unbind();
        return false;
    }
    // No partition means no flash answered: nothing to copy.
    const std::string device = FindFlashDevice();
    if (device.empty() || !DumpFlash(device, std::string(board::ifwiDumpFile),
                                     strategy.activeAhdr.verifiablePayloadSize))
    {
        ConsoleLog(ERR) << "IFWI file dump failed";
        Unbind();
        return false;
    }
    Unbind();
    return true;
}

bool CompareDump(ImageProcessStrategy& strategy, const Sha384& image,
                 const char* mismatch)
{
    if (!HashIfwiDump(strategy))
    {
        return false;
    }
    if (std::memcmp(strategy.deviceHash.data(), image.data(), image.size()) !=
        0)
    {
        ConsoleLog(ERR) << mismatch;
        return false;
    }
    return true;
}

} // namespace

bool ReadIFWIImage(ImageProcessStrategy& strategy)
{
    ConsoleLog(INFO) << "Verifying in parallel...";
    auto spiSelect = ReleaseSpiSelect();
    if (!spiSelect)
    {
        return false;
    }
    if (SpiDriverBound())
    {
        if (!WriteDriverFile(unbindFile))
        {
            ConsoleLog(ERR) << "Failed unbind to " << unbindFile;
            return false;
        }
        ConsoleLog(INFO) << "Unbind to " << unbindFile;
    }

    FpgaRegisters fpga;
    uint8_t presence = 0;
    if (!fpga.open() ||
        !fpga.read(board::oamPresenceReg, presence,
                   "Fail to get the value from Slave address 0x63"))
    {
        return false;
    }
    ConsoleLog(INFO) << "OAM presence register - 0x" << HexText(presence, 2);
    if (!fpga.write(board::misoDifferenceReg, 0xFF,
                    "Fail to write data 0xff at Slave address 0x56 reg 0x42") ||
        !fpga.write(board::spiRoutingReg, 0xFF,
                    "Fail to write data 0xff at Slave address 0x56 reg 0x40") ||
        !fpga.write(board::spiRoutingReg2, 0x00,
                    "Fail to write data 0x00 at Slave address 0x56 reg 0x41") ||
        !DumpStream(strategy, fpga))
    {
        return false;
    }

    uint8_t difference = 0;
    if (!fpga.read(
            board::misoDifferenceReg, difference,
            "Fail to get the value from the Slave address 0x56 reg 0x42") ||
        !fpga.write(board::spiRoutingReg2, 0x00,
                    "Fail to write data 0x00 at Slave address 0x56 reg 0x41") ||
        !fpga.write(board::spiRoutingReg, 0xFF,
                    "Fail to write data 0x00 at Slave address 0x56 reg 0x40"))
    {
        return false;
    }
    // An absent OAM's line always differs: only the others count.
    if (difference == presence)
    {
        ConsoleLog(INFO) << "All good MISO neq val - 0x"
                         << HexText(difference, 2);
        return true;
    }
    ConsoleLog(ERR) << "MISO neq reg val is non zero - 0x"
                    << HexText(difference, 2);
    ConsoleLog(ERR) << "OAM pres: 0x" << HexText(presence, 2);
    return false;
}

bool HashIfwiDump(ImageProcessStrategy& strategy)
{
    return HashFile(std::string(secure_boot_board::ifwiDumpFile),
                    strategy.activeAhdr.verifiablePayloadSize,
                    strategy.deviceHash);
}

bool CompareIfwiWithActive(ImageProcessStrategy& strategy)
{
    return CompareDump(
        strategy, strategy.activeHash,
        "Hash mismatch found for IFWI DeviceImage with ActiveImagefile.");
}

bool CompareIfwiWithInactive(ImageProcessStrategy& strategy)
{
    return CompareDump(
        strategy, strategy.inactiveHash,
        "Hash mismatch found for IFWI DeviceImage with InActiveImagefile.");
}

} // namespace orvane
