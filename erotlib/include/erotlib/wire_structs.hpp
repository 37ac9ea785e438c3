#pragma once

#include <cstddef>
#include <cstdint>

// Records exchanged with the eRoT, laid out byte for byte as on the wire.
// Multi-byte fields are little-endian; the SMC is little-endian too, so the
// records are read in place.
namespace erot
{

#pragma pack(push, 1)

// One entry of the component information. Entries of format version 4
// fill all 334 bytes; versions 3 and 2 are shorter and leave the tail zero.
struct ComponentInfo
{
    uint8_t reserved0[2];
    uint16_t componentId;
    uint8_t reserved4;
    uint32_t version;
    uint32_t svn;
    uint32_t keyId;
    uint16_t customerId;
    uint16_t variantId;
    char details[250];
    uint8_t digest[48];
    uint8_t active;
    uint8_t secureBootStatus;
    uint8_t reserved321;
    uint8_t hashValid;
    uint8_t bkcGood;
    uint8_t keyRevocationStatus;
    uint8_t svnRevocationStatus;
    uint8_t reserved326[8];
};

struct BootPartitionRecord
{
    uint16_t componentId;
    uint8_t side;
};

struct BkcManifestEntry
{
    uint16_t componentId;
    uint32_t version;
};

// Kept by the eRoT across resets on the SMC's behalf; opaque to the
// library.
struct SmcPersistRecord
{
    uint8_t flags;
    uint8_t reserved1[3];
    uint8_t smcFpgaAutoFlipped;
    uint8_t reserved5[5];
    uint16_t failoverFlipMask;
    uint8_t reserved12[4];
};

struct TraceLogEntry
{
    uint64_t timestamp;
    char tag[4];
    uint32_t data1;
    uint32_t data2;
    uint8_t severity;
};

#pragma pack(pop)

// Entry sizes of the older component information formats.
inline constexpr size_t componentInfoV4Size = 334;
inline constexpr size_t componentInfoV3Size = 324;
inline constexpr size_t componentInfoV2Size = 319;

// Trace log entries of format version 1 lack the severity byte.
inline constexpr size_t traceLogV2Size = 21;
inline constexpr size_t traceLogV1Size = 20;

// SmcPersistRecord::flags
inline constexpr uint8_t persistSecureBootFinished = 1U << 2;
inline constexpr uint8_t persistFirmwareCopyCompleted = 1U << 3;

static_assert(sizeof(ComponentInfo) == componentInfoV4Size);
static_assert(offsetof(ComponentInfo, componentId) == 2);
static_assert(offsetof(ComponentInfo, version) == 5);
static_assert(offsetof(ComponentInfo, svn) == 9);
static_assert(offsetof(ComponentInfo, keyId) == 13);
static_assert(offsetof(ComponentInfo, customerId) == 17);
static_assert(offsetof(ComponentInfo, variantId) == 19);
static_assert(offsetof(ComponentInfo, details) == 21);
static_assert(offsetof(ComponentInfo, digest) == 271);
static_assert(offsetof(ComponentInfo, active) == 319);
static_assert(offsetof(ComponentInfo, secureBootStatus) == 320);
static_assert(offsetof(ComponentInfo, hashValid) == 322);
static_assert(offsetof(ComponentInfo, bkcGood) == 323);
static_assert(offsetof(ComponentInfo, keyRevocationStatus) == 324);
static_assert(offsetof(ComponentInfo, svnRevocationStatus) == 325);
static_assert(offsetof(ComponentInfo, reserved326) == 326);

static_assert(sizeof(BootPartitionRecord) == 3);
static_assert(offsetof(BootPartitionRecord, side) == 2);

static_assert(sizeof(BkcManifestEntry) == 6);
static_assert(offsetof(BkcManifestEntry, version) == 2);

static_assert(sizeof(SmcPersistRecord) == 16);
static_assert(offsetof(SmcPersistRecord, smcFpgaAutoFlipped) == 4);
static_assert(offsetof(SmcPersistRecord, failoverFlipMask) == 10);

static_assert(sizeof(TraceLogEntry) == traceLogV2Size);
static_assert(offsetof(TraceLogEntry, tag) == 8);
static_assert(offsetof(TraceLogEntry, data1) == 12);
static_assert(offsetof(TraceLogEntry, data2) == 16);
static_assert(offsetof(TraceLogEntry, severity) == 20);

} // namespace erot
