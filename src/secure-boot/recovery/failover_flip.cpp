#include "secure-boot/failover_flip.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/erot_calls.hpp"
#include "secure-boot/image_paths.hpp"
#include "secure-boot/persist_update.hpp"
#include "secure-boot/secure_boot_service.hpp"

namespace orvane
{

namespace
{

using logging::level::ERR;
using logging::level::INFO;

// The flag of ErotSelectActiveFlash that keeps the choice across the reset.
constexpr uint8_t keepAcrossReset = 1;
// ErotSystemReset's argument for a reset of the SMC.
constexpr uint8_t smcReset = 1;

} // namespace

uint8_t FailoverBit(FwType id)
{
    switch (id)
    {
        case FwType::UBB_FPGA:
            return persist::FAILOVER_UBB_FPGA;
        case FwType::Retimer:
        case FwType::Retimer_1:
        case FwType::Retimer_2:
            return persist::FAILOVER_RETIMER;
        case FwType::RM:
            return persist::FAILOVER_RM;
        case FwType::IFWI:
            return persist::FAILOVER_IFWI;
        default:
            return 0;
    }
}

bool failoverFlip(SecureBootService& service, FwType id,
                  const std::string& name)
{
    bool flipped = false;
    const bool read =
        UpdatePersistIf(service, name, [&](erot::SmcPersistRecord& record) {
            const uint8_t bit = FailoverBit(id);
            if (bit == 0)
            {
                ConsoleLog(ERR) << "Unknown failover flip FW type";
                return false;
            }
            // One flip per family and power cycle: a second one would
            // bounce the SMC between two broken sides.
            if ((record.failoverFlipMask & bit) != 0)
            {
                ConsoleLog(ERR) << name << " auto-recovery mode entry failure.";
                return false;
            }
            ConsoleLog(INFO)
                << name
                << " failover flip entry to reset persisting boot logs.";
            ErotSelectActiveFlash(*service.criticalSection,
                                  OtherSide(service.activeSide),
                                  keepAcrossReset);
            record.failoverFlipMask |= bit;
            flipped = true;
            return true;
        });
    if (!read || !flipped)
    {
        return false;
    }
    if (ErotSystemReset(*service.criticalSection, smcReset) != 0)
    {
        ConsoleLog(ERR) << "System Power Reset failed.";
    }
    else
    {
        ConsoleLog(INFO) << "System Power reset.";
    }
    return true;
}

} // namespace orvane
