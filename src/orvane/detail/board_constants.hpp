#pragma once

#include "orvane/rail_tables.hpp"

#include <array>
#include <cstdint>

// The board's buses, devices and registers that several power steps share,
// and the ids their events carry; not part of the power control interface.
namespace orvane::board
{

// Tries of one I2C step before it counts as failed.
constexpr int tries = 3;

// The SMC FPGA: its expander image (rail enables and power goods, hotswap
// and reset control) and its own status.
constexpr int smcChannel = railChannel;
constexpr uint8_t smcAddress = railAddress;
// Its register 0x04 tells, besides power goods, whether the host unplugged
// the board.
constexpr uint8_t plugStatusRegister = 0x04;
constexpr uint8_t unpluggedBit = 0x02;
constexpr int smcStatusChannel = 12;
constexpr uint8_t smcStatusAddress = 0x23;

// The UBB FPGA and its OAM registers; bit n stands for OAM_n.
constexpr int fpgaChannel = 3;
constexpr uint8_t fpgaAddress = 0x56;
constexpr uint8_t hostGoodRegister = 0x60;
constexpr uint8_t moduleGoodRegister = 0x61;
constexpr uint8_t prsntRegister = 0x63; // a set bit is an empty slot
constexpr uint8_t ctfRegister = 0xC0;   // a clear bit is a CTF

// The IO expanders and the temperature monitor.
constexpr int expanderChannel = 14;
constexpr uint8_t linkConfigAddress = 0x20;
constexpr uint8_t moduleIdAddress = 0x27;
constexpr uint8_t emcAddress = 0x4C;
// The hotswap power goods on the second expander: all four bits set.
constexpr uint8_t hotswapGoodRegister = 0x04;
constexpr uint8_t hotswapGoodMask = 0x0F;

// The OAMs' own devices, behind the OAM mux.
constexpr int oamChannel = 2;
constexpr uint8_t oamMuxAddress = 0x70;

// The RM of OAM n answers on rmChannels[n].
constexpr std::array<int, 8> rmChannels{5, 6, 7, 8, 9, 10, 11, 0};
constexpr uint8_t rmAddress = 0x56;

// A failed power step is raised with this id at WARNING.
constexpr const char* unexpected = "OrvaneSvcUnexpected";
constexpr const char* poweredOn = "ResourceEvent.1.2.1.ResourcePoweredOn";
constexpr const char* poweredOff = "ResourceEvent.1.2.1.ResourcePoweredOff";

// A register byte for a stream, which would print it as a character.
constexpr unsigned num(uint8_t value)
{
    return value;
}

// Has the FRU service read every EEPROM again.
constexpr const char* fruRescanCommand =
    "busctl call xyz.openbmc_project.FruDevice /xyz/openbmc_project/FruDevice "
    "xyz.openbmc_project.FruDeviceManager ReScan";

} // namespace orvane::board
