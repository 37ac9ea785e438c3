#pragma once

#include "main/boot_ops.hpp"

namespace orvane
{

// The boot's operations on the power sequences. Secure boot and the
// firmware copy are not built in yet: in their place the boot does what
// they do on a healthy board, configure the UBB FPGA from side A and bring
// up the retimer and OAM standby rails, and leave the Boot Critical
// Section.
class PowerBootOps : public BootOps
{
  public:
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
    // The halt of a fatal standby step: the boot goes no further, the
    // Boot Critical Section is left, and the process keeps serving D-Bus.
    [[noreturn]] void halt();

    sem_t* semaphore = nullptr;
    bool warmGood = false;
};

} // namespace orvane
