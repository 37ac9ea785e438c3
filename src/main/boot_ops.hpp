#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <semaphore.h>

#include <cstdint>
#include <map>
#include <string>

namespace orvane
{

// Verification time per component, in seconds, for the boot time report.
using ComponentTimes = std::map<std::string, double>;

// The operations that the boot driver orders but doesn't own: the power
// sequences, the secure boot service and the service threads. The driver
// sees them only through this table, so the order of the boot can be run
// and checked with any of them scripted.
class BootOps
{
  public:
    virtual ~BootOps() = default;

    // Thread bodies; neither returns in the daemon.
    virtual void RunDbusService(OrvaneSvcState& state) = 0;
    virtual void PowerMonitor(OrvaneSvcState& state) = 0;

    virtual uint32_t Stby_Pwr_on_Sqnc_1(OrvaneSvcState& state) = 0;
    virtual uint32_t CheckWarmBootPowerGood(OrvaneSvcState& state) = 0;
    virtual void CreateSecureBootService(sem_t* semaphore, bool warmGood) = 0;
    virtual void UbbVrUpdate() = 0;
    virtual uint32_t Stby_Pwr_on_FpgaRail(OrvaneSvcState& state) = 0;
    virtual void RunSecureBoot(OrvaneSvcState& state) = 0;
    virtual void CollectComponentTimes(ComponentTimes& times) = 0;
    virtual uint32_t Stby_Pwr_on_Sqnc_3(OrvaneSvcState& state) = 0;
    // The firmware copy; posts the semaphore when it is over.
    virtual bool ParallelTask(sem_t* semaphore) = 0;
    virtual uint32_t Base_Pwr_on_Sqnc(OrvaneSvcState& state) = 0;
    virtual uint32_t Base_Pwr_off_Sqnc(OrvaneSvcState& state) = 0;
    virtual uint32_t CheckRmEfuseFault(OrvaneSvcState& state) = 0;
};

} // namespace orvane
