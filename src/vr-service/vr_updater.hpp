#pragma once

#include "vr-service/design_table.hpp"
#include "vr-service/fru_record.hpp"

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace orvane
{

// The common part of the OAM and UBB regulator updates: the FRU scan and
// its publication. The secure boot record holds both services.
class VrUpdater
{
  public:
    VrUpdater();
    virtual ~VrUpdater() = default;
    VrUpdater(const VrUpdater&) = delete;
    VrUpdater& operator=(const VrUpdater&) = delete;

    // Reads the FRUs of the UBB (kind 0) or the OAMs (kind 1) into
    // fruRecords and publishes them; true when the scan completed.
    virtual bool ScanFru(int kind);
    // Brings the regulators up to what side 0 (A) or any other (B) holds.
    virtual void RunUpdate(int side) = 0;
    // Whether a regulator was written by this process.
    virtual bool IsProgrammed() = 0;
    // Raises the halt and leaves the Boot Critical Section, then returns.
    virtual void HaltBoot() = 0;
    virtual void ReportWriteCycles() = 0;

    // The FRU service reads the UBB's EEPROM bus, or all, again.
    bool RescanFruBus();
    bool RescanFruAll();
    // Fills fruPaths with every FRU object of the mapper.
    bool ListFruObjects();
    void SetVrInfoProperty(const std::string& interface,
                           const std::string& property,
                           const std::string& value);
    // A set bit is a present OAM; 0 when the register can't be read.
    uint8_t ReadOamPresentMask();

    const VrDesignTable designs;
    std::vector<FruRecord> fruRecords;
    std::vector<std::string> fruPaths;
    // Set by the flag files before the update runs.
    std::atomic<bool> enableVrUpdate{false};
};

} // namespace orvane
