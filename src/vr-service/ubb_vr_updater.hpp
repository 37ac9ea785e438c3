#pragma once

#include "vr-service/vr_updater.hpp"

#include <semaphore.h>

#include <atomic>

namespace orvane
{

// The regulators of the UBB itself.
class UbbVrUpdater : public VrUpdater
{
  public:
    UbbVrUpdater(sem_t* bootSemaphore, bool smcReset) :
        bootSemaphore(bootSemaphore), smcReset(smcReset)
    {}

    // Reads the UBB's FRU, with rescans of its bus; runs before RunUpdate.
    bool ScanUbbFru();
    void RunUpdate(int side) override;
    bool IsProgrammed() override
    {
        return programmed;
    }
    void HaltBoot() override;
    // The UBB has no write-cycle report.
    void ReportWriteCycles() override
    {}

    sem_t* const bootSemaphore;
    const bool smcReset;
    std::atomic<bool> programmed{false};

  private:
    // The update of the one record; false when it ended the update.
    bool updateUbb(const FruRecord& record, int side, uint32_t& vrStatus);
};

} // namespace orvane
