#pragma once

#include "vr-service/vr_updater.hpp"

#include <semaphore.h>

#include <atomic>
#include <string>
#include <vector>

namespace orvane
{

// The regulators of every fitted OAM, one OAM after the other.
class OamVrUpdater : public VrUpdater
{
  public:
    // `smcReset`: the SMC restarted under board power, so the tool leaves
    // the regulators of running OAMs alone.
    OamVrUpdater(sem_t* bootSemaphore, bool smcReset) :
        bootSemaphore(bootSemaphore), smcReset(smcReset)
    {}

    void RunUpdate(int side) override;
    bool IsProgrammed() override
    {
        return programmed;
    }
    void HaltBoot() override;
    // Has the tool report each OAM's remaining write cycles.
    void ReportWriteCycles() override;

    sem_t* const bootSemaphore;
    const bool smcReset;
    std::atomic<bool> programmed{false};
    // One folder per updated OAM, in scan order.
    std::vector<std::string> configDirs;

  private:
    // One OAM; false when the update must stop here.
    bool updateOam(const FruRecord& record, int side, uint32_t& vrStatus);
};

} // namespace orvane
