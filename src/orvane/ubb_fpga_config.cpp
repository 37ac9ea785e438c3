#include "orvane/ubb_fpga_config.hpp"

#include "detail/board_constants.hpp"
#include "logging/log_line.hpp"
#include "utils/gpio_lines.hpp"
#include "utils/platform/platform.hpp"

#include <chrono>

namespace orvane
{

namespace
{

using board::unexpected;
using namespace logging::level;

constexpr double activationTimeoutMs = 15000.0;
constexpr int attempts = 2;

enum class Outcome
{
    configured,
    timedOut,
    failed,
};

bool setLine(const char* line, int value, const char* failure)
{
    if (SetGPIOOutput(line, value))
    {
        return true;
    }
    NvEvent(WARNING, unexpected, "", "", "")
        << "Power Sequence: [Standby power-on] " << failure;
    return false;
}

double millisecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(
               platform::clock().steadyNow() - start)
        .count();
}

// The FPGA raises HDT_DBREQ_L once it runs its image.
Outcome waitForActivation()
{
    const auto start = platform::clock().steadyNow();
    while (true)
    {
        int value = 0;
        if (!GetGPIOValue("HDT_DBREQ_L", value))
        {
            NvEvent(WARNING, unexpected, "", "", "")
                << "Power Sequence: [Standby power-on] Fail to get GPIO - "
                   "HOT_DBREQ_L when configured UBB FPGA.";
            return Outcome::failed;
        }
        if (value != 0)
        {
            return Outcome::configured;
        }
        if (millisecondsSince(start) > activationTimeoutMs)
        {
            return Outcome::timedOut;
        }
        platform::sleepMilliseconds(100);
    }
}

Outcome configureOnce(int side)
{
    ConsoleLog(INFO) << "Select UBB SPI flash " << side << " by BPR";
    // The texts say "to high" for either side.
    if (!setLine("SMC_UBB_FLASH_AB_SEL", side,
                 "Fail to set GPIO SMC_UBB_FLASH_AB_SEL output to high when "
                 "configured UBB FPGA.") ||
        !setLine("SMC_UBB_FPGA_SPI_SEL", 0,
                 "Fail to set GPIO - SMC_UBB_FPGA_SPI_SEL output to low when "
                 "configured UBB FPGA.") ||
        !setLine("UBB_FPGA_PROG_B", 0,
                 "Fail to set GPIO - UBB_FPGA_PROG_B output to low when "
                 "configured UBB FPGA."))
    {
        return Outcome::failed;
    }
    platform::sleepMilliseconds(1000);
    if (!setLine("UBB_FPGA_PROG_B", 1,
                 "Fail to set GPIO - UBB_FPGA_PROG_B output to high when "
                 "configured UBB FPGA."))
    {
        return Outcome::failed;
    }
    ConsoleLog(INFO) << "UBB FPGA Configuration starts";
    platform::sleepMilliseconds(100);
    return waitForActivation();
}

} // namespace

uint32_t ConfigureUbbFpga(OrvaneSvcState& state, int side)
{
    for (int attempt = 1; attempt <= attempts; ++attempt)
    {
        Outcome outcome = configureOnce(side);
        if (outcome == Outcome::failed)
        {
            return 0;
        }
        if (outcome == Outcome::configured)
        {
            state.ubbFpgaConfigured = true;
            ConsoleLog(INFO) << "UBB FPGA configured";
            return 1;
        }
        if (attempt < attempts)
        {
            NvEvent(WARNING, "FPGAActivationTimeout", "", "", "")
                << "Power Sequence: UBB FPGA activation timeout.";
            ConsoleLog(WARNING) << "Retry UBB FPGA configuration.";
        }
    }
    NvEvent(CRITICAL, "FPGAActivationTimeoutInARow", "", "", "")
        << "Power Sequence: UBB FPGA 2nd activation timeout.";
    ConsoleLog(ERR) << "UBB FPGA configed fail";
    return 0;
}

} // namespace orvane
