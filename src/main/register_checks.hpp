#pragma once

#include <cstdint>

namespace orvane
{

// Board status registers that the boot driver reads itself.
namespace boot_reg
{
constexpr int fpgaBus = 3;
constexpr uint8_t fpgaAddress = 0x56;
constexpr uint8_t ctf = 0xC0;
constexpr uint8_t moduleGood = 0x61;
constexpr uint8_t oamPresent = 0x63;
constexpr int expanderBus = 14;
constexpr uint8_t expanderAddress = 0x27;
constexpr uint8_t hotswapGood = 0x04;
constexpr uint8_t hotswapGoodMask = 0x0F;
} // namespace boot_reg

// The CTF, module power good and hotswap checks after a base attempt.
void CheckAfterBaseAttempt(int retryCount, uint32_t event);

// The hotswap and per-OAM reports after the retry loop has ended.
void ReportRetryExhausted(int retryCount);

} // namespace orvane
