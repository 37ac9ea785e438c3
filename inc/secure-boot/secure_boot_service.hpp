#pragma once

#include "orvane/orvane_svc_state.hpp"
#include "secure-boot/boot_context.hpp"

#include <semaphore.h>

#include <cstdint>
#include <map>
#include <string>

namespace orvane
{

// Verification time per component, in seconds, for the boot time report.
using ComponentTimes = std::map<std::string, double>;

// The secure boot service as far as it is built. Component verification
// and the firmware copy are not built in yet: in their place the boot reads
// the eRoT's trace log and active side, configures the UBB FPGA from that
// side, brings up the retimer and OAM standby rails, and leaves the Boot
// Critical Section.
class SecureBootService
{
  public:
    SecureBootService(sem_t* criticalSection, bool warmGood);

    void runUbbVrUpdate();
    void runSecureBoot(OrvaneSvcState& state);
    void getComponentTimes(ComponentTimes& times) const;
    // The firmware copy; posts the semaphore when it is over.
    bool parallelTask(sem_t* semaphore);

  private:
    // The side that the eRoT runs the SMC from; A when it refuses to say.
    uint8_t activeSide();

    BootContext context;
    bool warmGood;
};

} // namespace orvane
