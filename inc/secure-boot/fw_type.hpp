#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace orvane
{

// The firmware components, by the 16-bit identifier that the eRoT protocol
// and the AHDR carry.
enum class FwType : uint32_t
{
    EROT = 0x0100,
    APCFG = 0x0104,
    SMC = 0x0200,
    SMC_FPGA = 0x0300,
    UBB_FPGA = 0x0400,
    IFWI = 0x0500,
    Retimer = 0x0600,
    Retimer_1 = 0x0601,
    Retimer_2 = 0x0602,
    VR = 0x0700,
    RM = 0x0800,
    BUNDLE = 0x0900,
};

// Every name a component has, each used in its own place: events and logs,
// the keys of the secure boot caches, the suffix of its SecureImageInfo
// interface, and the stem of its image and AHDR files (empty: no file).
struct FwNames
{
    FwType id;
    std::string_view text;
    std::string_view cacheKey;
    std::string_view busSuffix;
    std::string_view stem;
};

inline constexpr std::array<FwNames, 12> fwNames{{
    {FwType::EROT, "EROT", "ROT", "EROT", ""},
    {FwType::APCFG, "APCFG", "APCFG", "APCFG", ""},
    {FwType::SMC, "SMC", "SMC-FW", "SMC", "smc"},
    {FwType::SMC_FPGA, "SMC_FPGA", "SMC-FPGA", "SMC_FPGA", "smc_fpga_pldm"},
    {FwType::UBB_FPGA, "UBB_FPGA", "UBB_FPGA", "UBB_FPGA", "ubb-fpga"},
    {FwType::IFWI, "IFWI", "IFWI", "IFWI", "ifwi"},
    {FwType::Retimer, "Retimer", "Retimer", "Retimer", "retimer"},
    {FwType::Retimer_1, "Retimer_1", "Retimer_1", "Retimer_1", "retimer-1"},
    {FwType::Retimer_2, "Retimer_2", "Retimer_2", "Retimer_2", "retimer-2"},
    {FwType::VR, "VR", "VR", "VR", "vr"},
    {FwType::RM, "RM", "RM", "RMC", "rm"},
    {FwType::BUNDLE, "BUNDLE", "BUNDLE", "BUNDLE", "fwbundle"},
}};

// The names of a known identifier; null for any other.
const FwNames* FindFwNames(uint32_t id);

} // namespace orvane
