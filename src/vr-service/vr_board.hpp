#pragma once

#include <array>
#include <cstdint>
#include <string_view>

// The board and its neighbours as the VR update sees them.
namespace orvane::vr_board
{

// The FRU service and the object mapper.
inline constexpr const char* fruService = "xyz.openbmc_project.FruDevice";
inline constexpr const char* fruInterface = "xyz.openbmc_project.FruDevice";
inline constexpr const char* fruManagerObject =
    "/xyz/openbmc_project/FruDevice";
inline constexpr const char* fruManagerInterface =
    "xyz.openbmc_project.FruDeviceManager";
inline constexpr const char* mapperService = "xyz.openbmc_project.ObjectMapper";
inline constexpr const char* mapperObject =
    "/xyz/openbmc_project/object_mapper";
inline constexpr const char* mapperInterface =
    "xyz.openbmc_project.ObjectMapper";
// A rescan of one bus reads its EEPROMs again, which takes a while.
inline constexpr uint64_t rescanBusTimeoutUs = 25'000'000;

// The UBB's FRU EEPROM; its air flow direction stands where an OAM's
// thermal model does.
inline constexpr uint8_t ubbFruBus = 14;
inline constexpr uint32_t ubbFruAddress = 0x50;
// The FRU bus of OAM 0 to 7, in OAM order.
inline constexpr std::array<uint32_t, 8> oamFruBus{5, 6, 7, 8, 9, 10, 11, 0};
inline constexpr unsigned oamCount = 8;

// The OAM present register of the UBB FPGA: a set bit is an empty slot.
inline constexpr unsigned presentBus = 3;
inline constexpr unsigned presentAddress = 0x56;
inline constexpr uint8_t presentRegister = 0x63;

// The daemon's own VR objects and the image information of the VR.
inline constexpr const char* orvaneService = "xyz.openbmc_project.Orvane";
inline constexpr const char* vrInfoObject =
    "/xyz/openbmc_project/Orvane/VR_Info";
inline constexpr std::string_view vrInfoInterface =
    "xyz.openbmc_project.Orvane.VR_Info.";
inline constexpr const char* vrImageInterface =
    "xyz.openbmc_project.Orvane.SecureImageInfo.VR";

// The RM service, which switches an OAM's IBC and eFuse enables.
inline constexpr const char* rmService = "xyz.openbmc_project.rm";
inline constexpr const char* rmObject = "/xyz/openbmc_project/rm/Ctrl";
inline constexpr const char* rmInterface = "xyz.openbmc_project.rmIntf";

// The configuration bundles of both sides, writable and read-only.
inline constexpr std::string_view bundleA = "/var/lib/images/A/vr-bundle/";
inline constexpr std::string_view bundleB = "/var/lib/images/B/vr-bundle/";
inline constexpr std::string_view readOnlyRoot = "/run/initramfs/ro";
inline constexpr std::string_view configFile = "/vr_config.json";
inline constexpr const char* tool = "/usr/sbin/vr-update";

} // namespace orvane::vr_board
