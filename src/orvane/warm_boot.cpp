#include "orvane/warm_boot.hpp"

#include "detail/board_constants.hpp"
#include "logging/log_line.hpp"
#include "utils/hex_text.hpp"
#include "utils/i2c_ops.hpp"
#include "utils/platform/platform.hpp"

#include <array>

namespace orvane
{

namespace
{

using namespace board;
using namespace logging::level;

constexpr uint64_t scuBase = 0x1E6E2000;
constexpr uint32_t scuMapLength = 4;
constexpr uint32_t resetReasonOffset = 0x64;
// Either bit: the SoC restarted while the board kept its power.
constexpr uint32_t warmResetMask = 0x3000;

bool readUbbFpgaByte(uint8_t reg, uint8_t& value)
{
    int event = 0;
    if (!I2CSmbusReadBlock(&event, fpgaChannel, fpgaAddress, reg, &value, 1))
    {
        ConsoleLog(ERR) << "Fail to read channel 3 slave address 0x56 "
                           "register address 0x"
                        << HexText(reg, 2);
        return false;
    }
    return true;
}

} // namespace

uint32_t ReadResetReason()
{
    uint32_t value = 0;
    switch (platform::devMem().readWord(scuBase, scuMapLength,
                                        resetReasonOffset, value))
    {
        case platform::DevMemResult::openFailed:
            ConsoleLog(ERR) << "Failed to open /dev/mem";
            return 0;
        case platform::DevMemResult::mmapFailed:
            ConsoleLog(ERR) << "Failed to mmap";
            return value;
        case platform::DevMemResult::munmapFailed:
            ConsoleLog(ERR) << "Failed to munmap";
            return value;
        case platform::DevMemResult::ok:
            break;
    }
    ConsoleLog(INFO) << "AST reset reason: 0x" << HexText(value);
    return value;
}

uint32_t CheckWarmBootPowerGood(OrvaneSvcState& state)
{
    const bool warmReset = (ReadResetReason() & warmResetMask) != 0;
    if (warmReset)
    {
        ConsoleLog(INFO) << "Warm reset detected, checking OAM power-good";
        // The FPGA kept its image through the SMC reset.
        state.ubbFpgaConfigured = true;
    }
    else if (!state.ubbFpgaConfigured)
    {
        ConsoleLog(INFO) << "Cold reset detected and UBB FPGA not configured "
                            "yet";
        return 0;
    }

    // Present, host power good, module power good, thermal trip: in the
    // order the FPGA reports them.
    constexpr std::array<uint8_t, 4> registers{prsntRegister, hostGoodRegister,
                                               moduleGoodRegister, 0xC0};
    std::array<uint8_t, 4> values{};
    for (size_t i = 0; i < registers.size(); ++i)
    {
        if (!readUbbFpgaByte(registers[i], values[i]))
        {
            return 0;
        }
    }
    const auto [present, hostGood, moduleGood, ctf] = values;
    ConsoleLog(INFO) << "oam_present = 0x" << HexText(present)
                     << ",host_pwrgd = 0x" << HexText(hostGood)
                     << ",module_pwrgd = 0x" << HexText(moduleGood)
                     << ",OAM_CTF = 0x" << HexText(ctf);

    // PRSNT reads a set bit for an empty slot: only fitted OAMs must be
    // good. Taken as read, a board with every slot fitted would pass with
    // no power at all, and base power-on would be skipped on a cold boot.
    const auto fitted = static_cast<uint8_t>(~present);
    if (fitted == 0)
    {
        // A bare board shows no power to read. After a warm reset it is
        // taken as running until this process attempts base power itself;
        // a cold boot and every later attempt run the full sequences.
        return warmReset && state.getSequenceEvent() == sequence_event::none
                   ? 1
                   : 0;
    }
    auto missing = [fitted](uint8_t good) {
        return static_cast<uint8_t>(fitted & static_cast<uint8_t>(~good));
    };
    return missing(hostGood) == 0 && missing(moduleGood) == 0 &&
                   missing(ctf) == 0
               ? 1
               : 0;
}

} // namespace orvane
