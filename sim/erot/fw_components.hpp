#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace ubbsim::erot
{

// The firmware components that the eRoT knows, by their 16-bit identifier.
// `stem` names the image pair on the SMC's storage (<stem>.bin and
// <stem>.ahdr); `hasAhdr` is false for an image without a signed header,
// and components without a stem have no file at all.
struct FwComponent
{
    uint16_t id;
    std::string_view name;
    std::string_view stem;
    bool hasAhdr;
};

inline constexpr std::array<FwComponent, 12> fwComponents = {{
    {0x0100, "EROT", "", false},
    {0x0104, "APCFG", "", false},
    {0x0200, "SMC", "smc", false},
    {0x0300, "SMC_FPGA", "smc_fpga_pldm", true},
    {0x0400, "UBB_FPGA", "ubb-fpga", true},
    {0x0500, "IFWI", "ifwi", true},
    {0x0600, "Retimer", "retimer", true},
    {0x0601, "Retimer_1", "retimer-1", true},
    {0x0602, "Retimer_2", "retimer-2", true},
    {0x0700, "VR", "vr", true},
    {0x0800, "RM", "rm", true},
    {0x0900, "BUNDLE", "fwbundle", true},
}};

inline constexpr uint16_t retimerId = 0x0600;
inline constexpr uint16_t retimer1Id = 0x0601;
inline constexpr uint16_t retimer2Id = 0x0602;

// Whether a board of that retimer layout carries the component: one
// retimer image, or one per retimer pair.
inline bool carried(bool dualRetimers, uint16_t id)
{
    if (id == retimerId)
    {
        return !dualRetimers;
    }
    if (id == retimer1Id || id == retimer2Id)
    {
        return dualRetimers;
    }
    return true;
}
inline constexpr uint16_t smcFpgaId = 0x0300;
inline constexpr uint16_t bundleId = 0x0900;

inline std::optional<FwComponent> componentByName(std::string_view name)
{
    for (const FwComponent& component : fwComponents)
    {
        if (component.name == name)
        {
            return component;
        }
    }
    return std::nullopt;
}

inline std::optional<FwComponent> componentById(uint16_t id)
{
    for (const FwComponent& component : fwComponents)
    {
        if (component.id == id)
        {
            return component;
        }
    }
    return std::nullopt;
}

} // namespace ubbsim::erot
