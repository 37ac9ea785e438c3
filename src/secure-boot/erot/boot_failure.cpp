#include "secure-boot/boot_failure.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/secure_boot_status.hpp"
#include "utils/critical_section.hpp"
#include "utils/platform/platform.hpp"

namespace orvane
{

void BootFailure(BootContext& context)
{
    NvEvent(logging::level::WARNING, "BootFailure", "RoT", "", "")
        << "System halt and enable FW recovery mode.";
    LeaveBootCriticalSection(context.criticalSection);
    SetSecureBootStatus("ManualRecovery");
    while (true)
    {
        platform::sleepSeconds(10);
    }
}

} // namespace orvane
