#pragma once

#include "main/boot_ops.hpp"
#include "secure-boot/boot_context.hpp"

namespace orvane
{

// The boot's operations on the power sequences. Component verification
// and the firmware copy are not built in yet: in their place the boot reads
// the eRoT's trace log and active side, configures the UBB FPGA from that
// side, brings up the retimer and OAM standby rails, and leaves the Boot
// Critical Section.
class PowerBootOps : public BootOps
{
  public:
    // Base power-on reaches the eRoT through the real client from here on.
    PowerBootOps();

    void RunDbusService(OrvaneSvcState& state) override;
    void PowerMonitor(OrvaneSvcState& state) override;
    uint32_t Stby_Pwr_on_Sqnc_1(OrvaneSvcState& state) override;
    uint32_t CheckWarmBootPowerGood(OrvaneSvcState& state) override;
    void CreateSecureBootService(sem_t* semaphore, bool warmGood) override;
    void UbbVrUpdate() override;
    uint32_t Stby_Pwr_on_FpgaRail(OrvaneSvcState& state) override;
    void RunSecureBoot(OrvaneSvcState& state) override;
    void CollectComponentTimes(ComponentTimes& times) override;
    uint32_t Stby_Pwr_on_Sqnc_3(OrvaneSvcState& state) override;
    bool ParallelTask(sem_t* semaphore) override;
    uint32_t Base_Pwr_on_Sqnc(OrvaneSvcState& state) override;
    uint32_t Base_Pwr_off_Sqnc(OrvaneSvcState& state) override;
    uint32_t CheckRmEfuseFault(OrvaneSvcState& state) override;

  private:
    // The side that the eRoT runs the SMC from; A when it refuses to say.
    uint8_t activeSide();

    BootContext context;
    bool warmGood = false;
};

} // namespace orvane
