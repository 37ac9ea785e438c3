#pragma once

#include "erotlib/wire_structs.hpp"
#include "secure-boot/boot_context.hpp"

#include <functional>
#include <span>

namespace orvane
{

class SecureBootService;

// The texts of one eRoT command that the start retries: its name in the
// retry event, the line of a refused attempt (the attempt follows) and the
// line before the halt.
struct RetryTexts
{
    const char* command;
    const char* retry;
    const char* gaveUp;
};

// Runs `command`, an eRoT call that returns the device's status, until the
// status is 0. A refusal raises ResourceRetryFailOEM; the third halts. A
// dead link has already halted inside the call.
void RetryErotCommand(BootContext& context, const RetryTexts& texts,
                      const std::function<int()>& command);

// Files the eRoT's component info into the service: every known record by
// its key, and for eRoT, SMC, SMC FPGA and APCFG also the AHDR-shaped block
// and the SMC FPGA's digests. Halts at an active record of those four that
// failed the eRoT's secure boot check.
void FileComponentInfo(SecureBootService& service,
                       std::span<const erot::ComponentInfo> records);

} // namespace orvane
