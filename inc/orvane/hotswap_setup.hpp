#pragma once

#include "orvane/orvane_svc_state.hpp"

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

// FPGA rails on, then the hot-swap SOA limits and sense values on boards
// whose design needs them.
uint32_t Stby_Pwr_on_FpgaRail(OrvaneSvcState& state);

// Set for an OAM once its VR address test has started: each OAM's
// regulators are probed once per process.
extern std::array<std::atomic<bool>, 8> vrAddressTested;

// The regulators of the UBB (`isOam` false) or of OAM `index`, once per
// address; true when at least one was added.
bool GetVrAddressList(bool isOam, int index, std::vector<VrEntry>& list);
bool TestVrAddress(int oam, VrEntry& entry);
bool ProbeVrAddress(int oam, const VrEntry& entry, uint8_t address);

// Compares each present OAM's DAC with its product's value and corrects it.
bool CheckDacConfig(OrvaneSvcState& state);

} // namespace orvane
