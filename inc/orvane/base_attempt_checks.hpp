#pragma once

#include <cstdint>

namespace orvane
{

// The CTF, module power good and hotswap checks after a base attempt.
void CheckAfterBaseAttempt(int retryCount, uint32_t event);

// The hotswap and per-OAM reports after the retry loop has ended.
void ReportRetryExhausted(int retryCount);

} // namespace orvane
