#pragma once

#include "vr-service/design_table.hpp"
#include "vr-service/fru_record.hpp"

#include <atomic>
#include <string>
#include <vector>

namespace orvane
{

// The common part of the OAM and UBB regulator updates. The FRU scan and
// the update itself come with the VR update; the secure boot record holds
// both services through this base.
class VrUpdater
{
  public:
    VrUpdater() : designs(MakeDesignTable())
    {
        fruRecords.reserve(9);
    }
    virtual ~VrUpdater() = default;

    const VrDesignTable designs;
    std::vector<FruRecord> fruRecords;
    std::vector<std::string> fruPaths;
    // Set by the flag files before the update runs.
    std::atomic<bool> enableVrUpdate{false};
};

} // namespace orvane
