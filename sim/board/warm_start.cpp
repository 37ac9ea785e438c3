#include "board/board_model.hpp"

namespace ubbsim
{

// The board as a daemon leaves it that ran standby (and base) before the
// SMC was reset: every rail on and good, the FPGA loaded, the OAM mux out
// of reset; with base power also the IO expanders out of reset, the hotswap
// on, host power good for the present OAMs, the retimers and PERST
// released, and the host asking for base power.
void BoardModel::startWarm(bool base)
{
    if (base)
    {
        hotswap.powerOn(); // before the enable pin, which would ramp it
    }
    // Banks 0x08-0x0B: FPGA rails; OAM rails, hotswap, and the I2C switch's
    // active-low reset, which base power-on pulls; retimer rails and the IO
    // expanders' reset; k517 rails.
    smcExpander.preset({0x1F, static_cast<uint8_t>(base ? 0x07 : 0x0E),
                        static_cast<uint8_t>(base ? 0xFE : 0xFC), 0x30},
                       {0x00, 0xF0, 0x01, 0xCF});
    rails.settleAll();

    gpio.drive("SMC_UBB_FPGA_SPI_SEL", 0);
    fpga.configureNow();
    fpga.preset(0x10, base ? 0x03 : 0x02);
    fpga.preset(0x62, base ? 0x00 : 0x01);
    for (uint8_t reg = 0x91; reg <= 0x98; ++reg)
    {
        fpga.preset(reg, base ? 0x10 : 0x00);
    }
    fpga.preset(0x99, base ? 0x01 : 0x00);
    fpga.preset(0xB0, 0xFF);
    if (base)
    {
        fpga.preset(0x66, 0xFF);
        fpga.preset(0x80, 0x02);
        fpga.preset(0x60, present);
    }
    modules.powerOn(hotswap.good(), fpga.hostPowerGood());
    emc.write({Emc1438::channelConfig, 0x0E});

    gpio.drive("GPU_BASE_HMC_READY", 1);
    gpio.drive("GPU_BASE_FPGA_READY", 1);
    gpio.drive("GPU_BASE_PWR_GD", base ? 1 : 0);
    gpio.drive("GPU_BASE_PWR_EN", base ? 1 : 0);
}

} // namespace ubbsim
