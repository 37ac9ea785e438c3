#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace ubbsim
{

// Seconds of board time, as everywhere in a scenario.
using ErotSeconds = double;

// What a scenario changes in one component of the eRoT. Unset fields keep
// the healthy board's values: the same version on both sides, SVN 1 and a
// committed minimum SVN of 1.
struct ErotComponentSetting
{
    std::optional<uint32_t> version;
    std::optional<uint32_t> svn;
    std::optional<uint32_t> minSvn;
    // The side its boot partition record names; unset follows the SMC.
    std::optional<int> bootSide;
    // Its entry in the known-good manifest; unset is the version that it
    // runs. 0 and 0xFFFFFFFF are values like any other here.
    std::optional<uint32_t> manifest;
    // Revocation of its signing key and of its older SVNs, on both sides:
    // 0 none, 1 requested (the next anti-rollback commit completes it),
    // 2 completed.
    uint8_t keyRevocation = 0;
    uint8_t svnRevocation = 0;
};

// An image pair on the SMC's storage that isn't what a healthy board has.
struct ErotImageMark
{
    enum class Kind
    {
        tampered,   // the image changed after signing
        revokedKey, // signed with a key that the eRoT has revoked
        unknownKey, // signed with a key that the eRoT doesn't know
        lowSvn,     // SVN below the committed minimum
        missing,    // no files at all
    };
    std::string component; // a component name, e.g. "UBB_FPGA"
    int side = 0;          // 0 A, 1 B
    Kind kind = Kind::tampered;
};

// A fault of the eRoT or of its link. Which fields matter depends on the
// kind:
//   deadLink         every exchange fails as the bus call
//   lostReplies      the device acts but its reply never arrives
//   shortReply       the reply ends after the 8-byte header
//   oversizedReply   the reply is larger than any buffer of the client
//   wrongLength      the reply lacks its last byte (has one too many
//                    when it carries no payload)
//   formatVersion    opcode, value: the reply's format version byte
//   status           opcode, value [component]: the device refuses
//   secureBootFailed component [side]: reported secure boot status 0
//   missingBpr       component: left out of the boot partition records
// Each holds from `at` until `until` (board seconds) and, where `count` is
// given, for that many matching exchanges only. `opcode` -1 matches all.
struct ErotFault
{
    std::string kind;
    ErotSeconds at = 0;
    std::optional<ErotSeconds> until;
    int opcode = -1;
    int count = -1;
    int value = 0;
    std::string component;
    int side = -1; // -1 both
};

// A trace log entry that the eRoT holds before the run starts.
struct ErotTraceSetting
{
    std::string tag; // four characters
    uint32_t data1 = 0;
    uint32_t data2 = 0;
    int severity = 5;
};

struct ErotScenario
{
    bool dualRetimers = false; // retimer-1/-2 instead of one retimer image
    int activeSide = 0;        // the SMC's flash side that boots
    bool updateOnReboot = false;
    bool autoArb = false;
    // Sides (0 A, 1 B) whose storage holds a UBB FPGA image waiting to be
    // programmed; otherwise the FPGA's image lives in its flash only and
    // storage holds its AHDR.
    std::vector<int> stagedUbbFpga;
    uint8_t health = 0x01;
    // The SMC's persist record as the run finds it: a secure boot that
    // finished earlier in this power cycle (unset: the SMC starts warm),
    // and a flip of the SMC FPGA's flash that was already tried.
    std::optional<bool> secureBootFinished;
    bool smcFpgaRecoveryTried = false;
    std::map<std::string, ErotComponentSetting> components;
    std::vector<ErotImageMark> images;
    std::vector<ErotFault> faults;
    std::vector<ErotTraceSetting> traceLog;
};

} // namespace ubbsim
