#include "vr-service/vr_texts.hpp"

#include "utils/hex_text.hpp"
#include "vr-service/design_table.hpp"
#include "vr-service/vr_board.hpp"

#include <array>
#include <nlohmann/json.hpp>

namespace orvane
{

namespace
{

// Products whose liquid-cooled records read as the air-cooled ones.
constexpr std::string_view airCooledName = "KV35 AC ";

struct DesignFolder
{
    int32_t design;
    std::string_view folder;
};

constexpr std::array<DesignFolder, 10> oamFolders{{
    {1, "OAMVRx1"},
    {2, "OAMVRx2"},
    {3, "OAMVRx3"},
    {4, "OAMVRx4"},
    {5, "OAMVRx5"},
    {6, "OAMVRx6"},
    {7, "OAMVRx7"},
    {8, "OAMVRx8"},
    {15, "OAMVRx8"},
    {14, "OAMVRxE"},
}};

constexpr std::array<DesignFolder, 9> ubbFolders{{
    {21, "UBBVRx1"},
    {22, "UBBVRx2"},
    {23, "UBBVRx3"},
    {24, "UBBVRx4"},
    {25, "UBBVRx5"},
    {27, "UBBVRx5"},
    {26, "UBBVRx6"},
    {28, "UBBVRx6"},
    {29, "UBBVRx6"},
}};

template <size_t N>
std::string_view folderOf(const std::array<DesignFolder, N>& folders,
                          int32_t design)
{
    for (const DesignFolder& entry : folders)
    {
        if (entry.design == design)
        {
            return entry.folder;
        }
    }
    return {};
}

} // namespace

std::string ThermalText(const std::string& value,
                        const std::string& productName, int kind)
{
    if (kind == fruKindUbb)
    {
        return value == "1" ? "FrontToBack" : value == "2" ? "BackToFront" : "";
    }
    const bool airCooled = productName.find(airCooledName) != std::string::npos;
    if (value == "1" || value == "18")
    {
        return "NT";
    }
    if (value == "2" || value == "17")
    {
        return "XT";
    }
    if (value == "19")
    {
        return "DLC";
    }
    if (value == "21")
    {
        return airCooled ? "NT" : "DLC-NT";
    }
    if (value == "20")
    {
        return airCooled ? "XT" : "DLC-XT";
    }
    return {};
}

std::optional<uint8_t> OamNumberForBus(uint32_t bus)
{
    for (size_t n = 0; n < vr_board::oamFruBus.size(); ++n)
    {
        if (vr_board::oamFruBus[n] == bus)
        {
            return static_cast<uint8_t>(n);
        }
    }
    return std::nullopt;
}

std::string_view OamConfigFolder(int32_t design)
{
    return design == 16 ? "OAMVRx10" : folderOf(oamFolders, design);
}

std::string_view UbbConfigFolder(int32_t design)
{
    return folderOf(ubbFolders, design);
}

bool IsForbiddenPair(int32_t ubbDesign, int32_t oamDesign)
{
    return (ubbDesign == 25 || ubbDesign == 26) &&
           (oamDesign == 15 || oamDesign == 16);
}

ToolResult DecodeToolStatus(int status)
{
    if ((status & 0x7F) != 0)
    {
        return ToolResult::killed;
    }
    switch (static_cast<int8_t>((status >> 8) & 0xFF))
    {
        case 0:
            return ToolResult::programmed;
        case 1:
            return ToolResult::crcsMatch;
        case 14:
            return ToolResult::skippedForReset;
        case 15:
            return ToolResult::disabled;
        case -2:
            return ToolResult::outOfWriteCycles;
        case -1:
            return ToolResult::failed;
        default:
            return ToolResult::unknownError;
    }
}

bool GoesOn(ToolResult result)
{
    return result != ToolResult::failed && result != ToolResult::unknownError &&
           result != ToolResult::killed;
}

std::optional<std::string> ConfigVersion(std::string_view json,
                                         std::string& problem)
{
    const nlohmann::json config = nlohmann::json::parse(json, nullptr, false);
    if (config.is_discarded())
    {
        problem = "not valid JSON";
        return std::nullopt;
    }
    auto found =
        config.is_object() ? config.find("ConfigVersion") : config.end();
    if (found == config.end() || !found->is_string())
    {
        return std::nullopt;
    }
    return found->get<std::string>();
}

std::string VersionText(int32_t design, const std::string& version)
{
    return HexText(static_cast<uint8_t>(design), 2) + "." + version;
}

} // namespace orvane
