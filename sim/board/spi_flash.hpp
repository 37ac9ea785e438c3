#pragma once

#include "board/device_images.hpp"
#include "board/gpio_lines.hpp"
#include "board/ubb_fpga.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace ubbsim
{

// The SMC's second SPI controller (1e631000.spi) and what its bus reaches:
// the UBB FPGA's flash of the side SMC_UBB_FLASH_AB_SEL picks while
// SMC_UBB_FPGA_SPI_SEL hands it to the SMC, otherwise the OAMs' IFWI
// flashes as the FPGA routes them, all read in one stream. Linux sees a
// flash only while the controller's driver is bound: binding probes the
// bus and makes the partition's MTD device under the SMC's root,
// unbinding takes it away, and then the FPGA reports which OAMs' data
// differed from the stream.
class SpiFlash
{
  public:
    struct Links
    {
        const GpioLines& gpio;
        UbbFpga& fpga;
        uint8_t present;
        std::function<bool(int)> oamPowered;
    };

    explicit SpiFlash(Links links);

    // What the devices hold; the driver binds afresh on it, and with a
    // root its sysfs entries and MTD device appear there.
    void load(const DeviceImages& images);
    // A write to the driver's bind or unbind file: 0, or -errno as the
    // kernel refuses it.
    int driverWrite(const std::string& file, const std::string& text);
    // The SoC restarted: Linux binds the driver again as it boots.
    void reboot();

    bool bound() const
    {
        return isBound;
    }
    // The MTD device that Linux shows now, e.g. "mtd5"; empty when none.
    const std::string& device() const
    {
        return mtd;
    }

  private:
    void bind();
    void unbind();
    // What answers on the bus now; none when no flash does.
    std::optional<std::vector<uint8_t>> probe();
    std::string path(const std::string& boardPath) const;

    Links links;
    const DeviceImages* images = nullptr;
    bool isBound = false;
    std::string mtd;
    // The OAMs whose line differed during the stream that is bound now.
    std::optional<uint8_t> difference;
};

} // namespace ubbsim
