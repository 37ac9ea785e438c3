#include "orvane/hotswap_setup.hpp"

#include "detail/board_constants.hpp"
#include "logging/log_line.hpp"
#include "orvane/power_service.hpp"
#include "orvane/rail_engine.hpp"
#include "orvane/rail_tables.hpp"
#include "orvane/update_bits.hpp"
#include "utils/dbus_handler.hpp"
#include "utils/hex_text.hpp"
#include "utils/i2c_ops.hpp"
#include "utils/platform/platform.hpp"

#include <array>
#include <cstdlib>
#include <string>

namespace orvane
{

namespace
{

using board::tries;
using board::unexpected;
using namespace logging::level;

// The UBB's hot-swap controllers share the SMC FPGA's bus.
constexpr int hotswapChannel = board::smcChannel;
constexpr uint8_t soaRegister = 0xD1;
constexpr uint8_t soaLimit = 0x0A;

// One hot-swap controller of the UBB. The texts differ from device to
// device in ways that log readers match on, so each is kept whole.
struct Hotswap
{
    const char* name;  // in the step label
    const char* event; // in the failure event
    uint8_t soaAddress;
    uint8_t senseAddress;
    uint8_t senseRegister;
    uint8_t soaMask;
    uint16_t sense;
    const char* setText;
    const char* readText;
    const char* senseLabel;
    const char* senseFailure;
};

// OAM45's SOA write goes to the OAM01 device (0x1C), and the IFX mask of 0
// leaves its limit alone; both as the boards need.
constexpr std::array<Hotswap, 5> hotswaps{{
    {"IFX", "IFX", 0x1E, 0x1E, 0xD3, 0x00, 0x080D,
     "Set IFX IBC HSWP  reg 0xd1 to value 0x",
     "Read FX IBC HSWP reg  0xd1 : value 0x",
     "OrvaneSvc Rsns value of IBC HSWAP", "Fail to set  0x1e register 0xd3 "},
    {"OAM01", "OAM01", 0x1C, 0x1C, 0xD5, soaLimit, 0xB467,
     "Set OAM01 IBC HSWP  reg 0xd1 to value 0x",
     "Read  OAM01 HSWP reg  0xd1 : value 0x",
     "OrvaneSvc Rsns value of OAM01 HSWAP", "Fail to set  0x1C register 0xd5 "},
    {"OAM23", "OAM23", 0x1D, 0x1D, 0xD5, soaLimit, 0xB467,
     "Set OAM23 IBC HSWP  reg 0xd1 to value 0x",
     "Read  OAM23 HSWP reg  0xd1 : value 0x",
     "OrvaneSvc Rsns value of OAM23 HSWAP", "Fail to set  0x1d register 0xd5 "},
    {"OAM45", "OAM45", 0x1C, 0x11, 0xD5, soaLimit, 0xB467,
     "Set OAM45 HSWP  reg 0xd1 to value 0x",
     "Read  OAM45 HSWP reg  0xd1 : value 0x",
     "OrvaneSvc Rsns value of OAM45 HSWAP", "Fail to set  0x11 register 0xd5 "},
    {"OAM67", "OAM7", 0x13, 0x13, 0xD5, soaLimit, 0xB467,
     "Set OAM67 IBC HSWP  reg 0xd1 to value 0x",
     "Read  OAM67 HSWP reg  0xd1 : value 0x",
     "OrvaneSvc Rsns value of OAM67 HSWAP", "Fail to set  0x13 register 0xd5 "},
}};

// Only these designs carry hot-swap controllers that need the set-up.
bool needsHotswapSetup(long design)
{
    return design == 23 || design == 25 || design == 27;
}

long ubbDesign()
{
    std::string text = GetBusProperty(
        vrInfoPath, std::string(vrInfoInterface) + ".UBB", "HW_DESIGN");
    return std::strtol(text.c_str(), nullptr, 10);
}

bool setUpHotswap(OrvaneSvcState& state, const Hotswap& device)
{
    const std::string label =
        std::string("Power Sequence Standby Power On: set SOA limit on ") +
        device.name + " UBB HSWAP register 0xd1 to 0x0a";
    ConsoleLog(INFO) << label;
    int errorCode = 0;
    uint8_t readBack = 0;
    uint8_t written = 0;
    if (!UpdateBitsRetry(state, errorCode, tries, hotswapChannel,
                         device.soaAddress, soaRegister, device.soaMask,
                         written, readBack, true, true, true, label))
    {
        NvEvent(WARNING, unexpected, "", "", "")
            << "Power Sequence: [Standby power-on] Fail to  set SOA limit on "
            << device.event << " UBB HSWAP register 0xd1.";
        return false;
    }
    ConsoleLog(INFO) << device.setText << HexText(written);
    ConsoleLog(INFO) << device.readText << HexText(readBack);

    // Low byte first. A sense value that doesn't take only skews readings.
    std::array<uint8_t, 2> sense{static_cast<uint8_t>(device.sense & 0xFF),
                                 static_cast<uint8_t>(device.sense >> 8)};
    int event = 0;
    if (!WriteReadWithRetry(&event, tries, hotswapChannel, device.senseAddress,
                            device.senseRegister, 2, sense.data(), 0, nullptr,
                            true, device.senseLabel))
    {
        ConsoleLog(ERR) << device.senseFailure;
    }
    return true;
}

} // namespace

uint32_t Stby_Pwr_on_FpgaRail(OrvaneSvcState& state)
{
    int errorCode = 0;
    if (!EnableRails(state, errorCode, fpgaRailsOn, railAddress, fpgaBank,
                     railChannel, true))
    {
        NvEvent(WARNING, unexpected, "", "", "")
            << "Power Sequence: [Standby power-on] FPGA rail fail.";
        return 0;
    }
    ConsoleLog(INFO) << "FPGA rail is on";
    platform::sleepMilliseconds(3000);

    if (!needsHotswapSetup(ubbDesign()))
    {
        return 1;
    }
    for (const Hotswap& device : hotswaps)
    {
        if (!setUpHotswap(state, device))
        {
            return 0;
        }
    }
    return 1;
}

} // namespace orvane
