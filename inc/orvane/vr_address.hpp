#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace orvane
{

// One regulator of a vr_config.json.
struct VrEntry
{
    uint8_t address = 0;
    std::string model;
    std::string name;
};

// Set for an OAM once its VR address test has started: each OAM's
// regulators are probed once per process.
extern std::array<std::atomic<bool>, 8> vrAddressTested;

// The regulators of the UBB (`isOam` false) or of OAM `index`, once per
// address; true when at least one was added.
bool GetVrAddressList(bool isOam, int index, std::vector<VrEntry>& list);
bool TestVrAddress(int oam, VrEntry& entry);
bool ProbeVrAddress(int oam, const VrEntry& entry, uint8_t address);

} // namespace orvane
