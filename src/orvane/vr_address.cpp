#include "orvane/vr_address.hpp"

#include "detail/board_constants.hpp"
#include "logging/log_line.hpp"
#include "orvane/power_service.hpp"
#include "utils/dbus_handler.hpp"
#include "utils/hex_text.hpp"
#include "utils/i2c_channel.hpp"
#include "utils/platform/platform.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <string>

namespace orvane
{

std::array<std::atomic<bool>, 8> vrAddressTested{};

namespace
{

using namespace logging::level;

// Behind the OAM mux, which the caller has set.
constexpr int oamBus = board::oamChannel;
constexpr uint8_t probeRegister = 0x8D;
constexpr int probeReads = 3;
// Where the IBC of older OAM builds answers.
constexpr uint8_t alternateAddress = 0x10;
constexpr uint8_t secondAlternateAddress = 0x1F;

// Only these OAM designs were built with more than one IBC address.
bool designMayMoveIbc(int oam)
{
    std::string text = GetBusProperty(vrInfoPath,
                                      std::string(vrInfoInterface) + ".OAM_" +
                                          std::to_string(oam),
                                      "HW_DESIGN");
    long design = std::strtol(text.c_str(), nullptr, 10);
    return design == 7 || design == 14;
}

bool hasEntryFields(const nlohmann::json& element)
{
    return element.is_object() && element.contains("SlaveAddress") &&
           element.contains("Model") && element.contains("Name");
}

// False, with the field named, when an entry can't be read: a text that is
// no number or too large for stoul, or a field that isn't a text.
bool makeEntry(const nlohmann::json& element, VrEntry& entry,
               const char*& failed)
{
    try
    {
        failed = "SlaveAddress";
        entry.address = static_cast<uint8_t>(
            std::stoul(element[failed].get<std::string>(), nullptr, 16));
        failed = "Model";
        entry.model = element[failed].get<std::string>();
        failed = "Name";
        entry.name = element[failed].get<std::string>();
        return true;
    }
    catch (const std::exception&)
    {
        return false;
    }
}

// The configuration, or null when the file isn't JSON.
nlohmann::json readConfig(const std::filesystem::path& file,
                          const std::string& name)
{
    std::ifstream stream(file);
    nlohmann::json config = nlohmann::json::parse(stream, nullptr, false);
    if (config.is_discarded())
    {
        ConsoleLog(ERR) << name << " is not valid JSON: no VR of it is used";
        return nullptr;
    }
    return config;
}

} // namespace

bool GetVrAddressList(bool isOam, int index, std::vector<VrEntry>& list)
{
    const std::string folder =
        GetVrConfigDir(isOam ? "OAM_" + std::to_string(index) : "UBB");
    const std::string name = folder + "/vr_config.json";
    const auto file = platform::path(name);
    std::error_code error;
    if (!std::filesystem::exists(file, error))
    {
        ConsoleLog(ERR)
            << "No vr_config.json file found in VR config folder \n";
        return false;
    }
    const nlohmann::json config = readConfig(file, name);
    auto configs = config.find("VRConfigs");
    if (configs == config.end() || !configs->is_array())
    {
        return false;
    }

    std::set<uint8_t> seen;
    bool added = false;
    for (const nlohmann::json& element : *configs)
    {
        if (!hasEntryFields(element))
        {
            continue;
        }
        VrEntry entry;
        const char* failed = "";
        if (!makeEntry(element, entry, failed))
        {
            // One bad entry costs only its own VR.
            ConsoleLog(ERR) << name << ": VR entry with " << failed << " "
                            << element[failed].dump()
                            << " can't be read; that VR is skipped";
            continue;
        }
        const uint8_t configured = entry.address;
        if (seen.contains(configured))
        {
            continue;
        }
        if (isOam && entry.name == "IBC" && !TestVrAddress(index, entry))
        {
            ConsoleLog(ERR) << "I2C address test failed for OAM_" << index
                            << "_" << entry.name;
        }
        seen.insert(configured);
        list.push_back(entry);
        added = true;
    }
    return added;
}

bool TestVrAddress(int oam, VrEntry& entry)
{
    if (oam < 0 || oam >= static_cast<int>(vrAddressTested.size()) ||
        !designMayMoveIbc(oam) || vrAddressTested[oam].exchange(true))
    {
        return true;
    }
    ConsoleLog(INFO) << "Testing different I2C address for " << entry.name
                     << " for OAM " << oam;
    const std::string where =
        " for OAM_" + std::to_string(oam) + "_" + entry.name;
    if (ProbeVrAddress(oam, entry, entry.address))
    {
        ConsoleLog(INFO) << "I2C address 0x" << HexText(entry.address) << where
                         << " is responsive";
        return true;
    }
    ConsoleLog(INFO) << "I2C address 0x" << HexText(entry.address) << where
                     << " is not responsive";
    ConsoleLog(INFO) << "Assuming its a old BOM, modifying VR address to 0x"
                     << HexText(alternateAddress);
    if (ProbeVrAddress(oam, entry, alternateAddress))
    {
        ConsoleLog(INFO) << "Alternate I2C address 0x"
                         << HexText(alternateAddress) << where
                         << " is responsive";
        entry.address = alternateAddress;
        return true;
    }
    ConsoleLog(INFO) << "Modifying VR address to second alternate 0x"
                     << HexText(secondAlternateAddress);
    if (ProbeVrAddress(oam, entry, secondAlternateAddress))
    {
        ConsoleLog(INFO) << "Second alternate I2C address 0x"
                         << HexText(secondAlternateAddress) << where
                         << " is responsive";
        entry.address = secondAlternateAddress;
        return true;
    }
    return false;
}

bool ProbeVrAddress(int oam, const VrEntry& entry, uint8_t address)
{
    // Unlike the one-shot transfers, one descriptor serves all the reads.
    I2CChannel channel;
    channel.bus = oamBus;
    int event = 0;
    bool responsive = false;
    if (channel.OpenChannel(&event))
    {
        for (int read = 0; read < probeReads && !responsive; ++read)
        {
            platform::sleepMilliseconds(100);
            uint8_t value = 0;
            responsive =
                channel.ReadMemoryByte(&event, address, probeRegister, &value);
            ConsoleLog(INFO)
                << "Testing I2C address 0x" << HexText(address) << " for OAM_"
                << oam << "_" << entry.name << ". Status " << responsive;
        }
    }
    platform::i2c().close(channel.fd);
    return responsive;
}

} // namespace orvane
