#pragma once

#include "scenario/scenario.hpp"

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <variant>
#include <vector>

namespace ubbsim
{

constexpr const char* fruService = "xyz.openbmc_project.FruDevice";
constexpr const char* fruRoot = "/xyz/openbmc_project/FruDevice";
constexpr const char* fruInterface = "xyz.openbmc_project.FruDevice";
constexpr const char* fruManagerInterface =
    "xyz.openbmc_project.FruDeviceManager";

// The I2C bus of each OAM's FRU EEPROM; the order is the board's wiring.
constexpr std::array<uint32_t, 8> oamFruBus = {5, 6, 7, 8, 9, 10, 11, 0};
constexpr uint32_t ubbFruBus = 14;
constexpr uint32_t fruEepromAddress = 0x50;

// BUS and ADDRESS are numbers ("u"), everything else text ("s").
using FruValue = std::variant<uint32_t, std::string>;

struct FruObject
{
    std::string path;
    std::map<std::string, FruValue> properties;
};

// The FRU objects the scenario's board shows: one per present OAM whose
// EEPROM answers, and the UBB's.
std::vector<FruObject> fruObjects(const Scenario& scenario);

} // namespace ubbsim
