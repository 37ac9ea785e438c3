#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace ubbsim::erot
{

using Digest = std::array<uint8_t, 48>;

// What the eRoT knows of one side of a component.
struct SideInfo
{
    uint32_t version = 0;
    uint32_t svn = 0;
    uint32_t keyId = 0;
    uint16_t customerId = 0;
    uint16_t variantId = 0;
    std::string details;
    Digest digest{};
    bool hashValid = false;
    uint8_t secureBootStatus = 1; // 0: the side failed the eRoT's check
    // 0 not requested, 1 requested, 2 completed
    uint8_t keyRevocation = 0;
    uint8_t svnRevocation = 0;
};

struct ComponentState
{
    uint16_t id = 0;
    std::array<SideInfo, 2> sides;
    // The side its boot partition record names; none follows the SMC's
    // active side.
    std::optional<uint8_t> bootSide;
    // Anti-rollback: images below this SVN don't verify.
    uint32_t minSvn = 0;
};

// A public key that the eRoT holds for image signatures, by the index that
// signature blocks name.
struct TrustedKey
{
    uint8_t index = 0;
    std::vector<uint8_t> publicDer; // SubjectPublicKeyInfo
    bool revoked = false;
};

struct TraceRecord
{
    uint64_t timestamp = 0; // board milliseconds
    std::array<char, 4> tag{};
    uint32_t data1 = 0;
    uint32_t data2 = 0;
    uint8_t severity = 5;
};

// The persist record that the eRoT keeps for the SMC: the bytes that it
// looks at itself, and those that a scenario may set.
inline constexpr size_t persistFlagsByte = 0;
inline constexpr uint8_t persistBootFinished = 0x04;
inline constexpr uint8_t persistCopyCompleted = 0x08;
inline constexpr size_t persistFpgaFlippedByte = 4;

// Bits of the health byte.
inline constexpr uint8_t healthReady = 0x01;
inline constexpr uint8_t healthNonFatal = 0x02;
inline constexpr uint8_t healthFatal = 0x04;

// Everything the eRoT keeps. It outlives the SMC: daemon restarts and SMC
// resets see the same state.
struct ErotState
{
    // The SMC's flash: the side it boots from, the side it will boot from
    // after the next reset, and whether an update was staged for it.
    uint8_t activeSide = 0;
    uint8_t pendingSide = 0;
    bool updateOnReboot = false;

    std::vector<ComponentState> components;
    std::vector<std::pair<uint16_t, uint32_t>> bkcManifest;
    std::array<uint8_t, 16> persist{};
    bool autoArb = false;
    std::vector<TrustedKey> keys;

    std::deque<TraceRecord> traceLog;
    // The eRoT's clock at this power-on of the board: its log goes on from
    // a saved state's last entry instead of starting at 0 again.
    uint64_t traceClockBase = 0;
    bool traceOverflowed = false;
    size_t traceCapacity = 1024;
    uint8_t health = healthReady;

    uint32_t resetReason = 0;
    std::array<uint8_t, 48> deviceId{};
    std::array<uint8_t, 48> identity{};
    std::vector<uint8_t> certChain; // starts with its own 16-bit length
    std::optional<std::vector<uint8_t>> token;
    uint32_t securitySettings = 0;
    uint32_t manageability = 0; // one bit per feature
    std::optional<std::array<uint8_t, 48>> record;
    uint8_t oneByte = 0;
    uint32_t commandF1Value = 0;

    // Entries per page of the paged reads.
    size_t componentInfoPage = 8;
    size_t traceLogPage = 64;

    ComponentState* component(uint16_t id);
    const ComponentState* component(uint16_t id) const;
    // The side that the component runs from: its boot partition record.
    uint8_t runningSide(const ComponentState& component) const;
    const TrustedKey* key(uint8_t index) const;
    std::optional<uint32_t> bkcVersion(uint16_t id) const;
    // Appends to the trace log, never stamped before the last entry; a
    // full log drops its oldest entry and remembers that it overflowed.
    void appendTrace(const TraceRecord& record);
};

} // namespace ubbsim::erot
