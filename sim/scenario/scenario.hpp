#pragma once

#include "erot/erot_scenario.hpp"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace ubbsim
{

// Times in a scenario are seconds of board time from the start of the run.
using Seconds = double;

// FRU contents as the FRU device service publishes them.
struct FruContents
{
    bool present = true;
    std::string productName; // PRODUCT_PRODUCT_NAME, e.g. "OAM KV35 AC B"
    std::string hwDesign;    // MULTIRECORD_VR_HW_DESIGN
    std::string version;     // PRODUCT_VERSION
    std::string thermal;     // MULTIRECORD_THERMAL_MODEL / _AIR_FLOW_DIR
    // An empty text above stands for a field the EEPROM doesn't carry: the
    // property is then not published.
    std::map<std::string, std::string> extra; // further string properties
};

struct OamSlot
{
    bool present = true;
    FruContents fru;
    // The I2C address at which the OAM's IBC regulator answers; an old BOM
    // answers at an alternate (0x10 or 0x1F).
    std::optional<uint8_t> ibcAddress;
    uint16_t dacValue = 0x0604; // bytes 3 and 4 of the DAC block
    // The SHA-256 that the RM service reports for this OAM's RM image.
    std::array<uint8_t, 32> rmDigest{};
};

enum class ResetKind
{
    cold, // the SMC and the board start from no power
    warm, // the SMC restarts while the board keeps standby (and base) power
};

// What the host and the rack do to the board.
struct HostAction
{
    enum class Kind
    {
        enable,  // GPU_BASE_PWR_EN high
        disable, // GPU_BASE_PWR_EN low
        unplug,  // the HGX plug bit reports unplugged
        plug,
        serverReset, // server reset line asserted (active low bit)
        serverResetRelease,
    };
    Seconds at = 0;
    Kind kind = Kind::enable;
};

// A fault of the board. Which fields matter depends on the kind:
//   railNoPowerGood  rail                       power good never comes
//   railDrop         rail, at, until            power good drops at `at`
//   nack             bus, address, at, until    the device stops answering
//   gpioBusy         line, at, until            another consumer holds it
//   ctf              oam, at, until             thermal trip of one OAM
//   moduleGoodLost   oam, at, until             module power good drops
//   hotswapNoGood    count                      hotswap power good never
//                                               comes, for `count` enables
//                                               (-1: always)
//   fpgaTimeout      count                      the FPGA doesn't activate
//                                               for `count` program pulses
//   efuse            oam, value                 the RM reports an eFuse fault
//   emcMisconfig     value                      the EMC1438 reads `value`
//   sgpio            fpga ("ubb"|"smc"), value, at   SGPIO status bits set
struct Fault
{
    std::string kind;
    Seconds at = 0;
    std::optional<Seconds> until;
    std::string rail; // a rail name, e.g. "VCCINT_FPGA" or "P3V3_OAM_03"
    int oam = -1;
    int bus = -1;
    int address = -1;
    std::string line;
    std::string fpga;
    int count = -1;
    int value = 0;
};

// What a device of the board holds instead of the image that it was
// programmed with from the SMC's storage.
enum class DeviceMark
{
    tampered, // one byte changed
    erased,   // every byte 0xFF
};

// The devices whose contents differ from the image tree. Unmarked ones
// hold the image of the side their component runs from; the UBB FPGA's
// flashes hold one side each.
struct DeviceScenario
{
    std::map<int, DeviceMark> ubbFpgaFlash; // by side: 0 A, 1 B
    std::map<int, DeviceMark> ifwi;         // by OAM, fitted ones only
    std::map<int, DeviceMark> retimers;     // by switch value, 0x01..0x80
    // Retimers (by switch value) that keep what they hold whatever the
    // update script writes.
    std::set<int> stuckRetimers;
};

// What happens to the daemon process.
struct DaemonAction
{
    enum class Kind
    {
        restart, // kill and start again: an SMC reset under board power
        kill,
        // kill and start again without an SMC reset: the reset reason
        // stays what it was when the SMC booted
        respawn,
        // a second instance beside the running one, on the same board and
        // bus; it has a trail of its own
        second,
    };
    Seconds at = 0;
    Kind kind = Kind::restart;
};

// A management client on the run's bus: busctl with these arguments
// (after --system), e.g. {"introspect", "xyz.openbmc_project.Orvane",
// "/xyz/openbmc_project/Orvane"}.
struct ClientCall
{
    Seconds at = 0;
    std::vector<std::string> busctl;
};

// The regulator update tool, /usr/sbin/vr-update: how it ends for the UBB
// and for each OAM, and which folders of the configuration bundles are
// missing. A status is an exit code, or toolKilled for a tool that ends by
// a signal. Without a word it skips a board after an SMC reset (exit code
// 14) and otherwise finds all CRCs matching (exit code 1).
constexpr int toolKilled = -1;
struct VrUpdateTool
{
    std::optional<int> ubb;
    std::array<std::optional<int>, 8> oams;
    // Absolute folders below a vr-bundle tree, removed after it is made.
    std::vector<std::string> missing;
};

// How the inactive side stands before the firmware copy. Files are named
// as in the image tree ("rm.bin", "retimer-1.ahdr"); the inactive side of a
// file is the other side from the one its component boots from.
struct FirmwareCopyScenario
{
    // FIRMWARE_COPY_COMPLETED already set in the eRoT's persist record.
    bool copyCompleted = false;
    // Inactive files that hold an older image (one byte changed).
    std::vector<std::string> inactiveDiffers;
    // Retimer files that the layout doesn't carry, left on the inactive
    // side by an earlier layout.
    std::vector<std::string> inactiveOnly;
    // The backup SMC flash holds an older image.
    bool backupFlashDiffers = false;
    // The update partition whose erase fails, if any.
    std::string eraseFails;
};

// What a manual update of a single-image SMC to the two-image retimer
// layout leaves behind: the single image's pair still on both sides of the
// storage, the two images in tar archives under
// /var/lib/orvane/retimer_images/, and the flag that asks the next boot to
// take them from there. The retimers still hold the single image.
struct ManualRetimerUpdate
{
    // Components ("Retimer_1", "Retimer_2") with an archive.
    std::set<std::string> archived = {"Retimer_1", "Retimer_2"};
    // Components whose pair is already in the active side's storage.
    std::set<std::string> stored;
    bool flag = true; // enable_manual_retimer_update holds "1"
};

struct Scenario
{
    std::string name;
    std::string description;
    ResetKind start = ResetKind::cold;
    // With a warm start: whether base power was on before the SMC reset.
    bool baseWasOn = false;
    std::array<OamSlot, 8> oams;
    FruContents ubbFru;
    bool fruValid = true; // FruValid of the FRU device manager
    bool k517 = true;     // the board carries the k517 retimer rails
    std::vector<HostAction> host;
    std::vector<Fault> faults;
    std::vector<DaemonAction> daemon;
    std::vector<ClientCall> clients;
    std::map<std::string, int> toolExit; // exit status per tool path
    VrUpdateTool vrUpdate;
    // Files under the simulated root before the daemon starts: absolute
    // path to contents, taken as they are.
    std::map<std::string, std::string> files;
    // When the non-volatile log partition, /run/initramfs/log_nv, shows in
    // the simulated /proc/mounts: at the start unless said otherwise.
    Seconds logNvMount = 0;
    ErotScenario erot; // the root of trust and its images
    DeviceScenario devices;
    FirmwareCopyScenario firmwareCopy;
    std::optional<ManualRetimerUpdate> manualRetimer;
    Seconds end = 120;
    double speed = 10; // board seconds per machine second
};

} // namespace ubbsim
