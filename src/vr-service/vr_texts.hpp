#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orvane
{

// What a FRU's thermal or air-flow record says, in the words the VR_Info
// objects publish: the UBB's air flow direction for kind 0, an OAM's
// thermal model for kind 1 (which the product name can refine). Empty for
// a value that means nothing.
std::string ThermalText(const std::string& value,
                        const std::string& productName, int kind);

// The OAM behind a FRU bus; none for a bus that carries no OAM.
std::optional<uint8_t> OamNumberForBus(uint32_t bus);

// The configuration folder of a design; empty when the design has none,
// which makes it forbidden.
std::string_view OamConfigFolder(int32_t design);
std::string_view UbbConfigFolder(int32_t design);

// UBB and OAM designs whose regulators may not run together.
bool IsForbiddenPair(int32_t ubbDesign, int32_t oamDesign);

// How one run of the update tool ended.
enum class ToolResult
{
    programmed,       // 0
    crcsMatch,        // 1: nothing written
    skippedForReset,  // 14
    disabled,         // 15
    outOfWriteCycles, // 254
    failed,           // 255
    unknownError,     // any other exit code
    killed,           // ended by a signal
};

// `status` as pclose gives it; -1 (no shell) counts as an abnormal end.
ToolResult DecodeToolStatus(int status);

// Whether the update of the other boards may go on after this result.
bool GoesOn(ToolResult result);

// The string ConfigVersion at the top of a vr_config.json text; none when
// the text isn't JSON (with why in `problem`) or has no such string.
std::optional<std::string> ConfigVersion(std::string_view json,
                                         std::string& problem);

// The published VR version: the design as two lower-case hex digits, ".",
// and the configuration's version.
std::string VersionText(int32_t design, const std::string& version);

} // namespace orvane
