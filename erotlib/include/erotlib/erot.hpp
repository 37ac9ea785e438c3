#pragma once

#include "erotlib/wire_structs.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

// Client of the external root of trust. Every call is one synchronous
// exchange (or a short series of them for the paged reads) and returns 0
// when a well-formed response arrived, or a negated errno. The device's
// status byte goes to `pErrorCode`; 0xFF there means the transport failed.
// Arrays handed out are allocated with malloc and released with free, or
// held in an `Owned`.
namespace erot
{

struct FreeDeleter
{
    void operator()(void* memory) const noexcept
    {
        std::free(memory);
    }
};

template <typename T>
using Owned = std::unique_ptr<T, FreeDeleter>;

// Every frame starts with this header; requests leave room for it.
inline constexpr size_t frameHeaderSize = 8;
// The smallest response: header and status byte.
inline constexpr size_t minResponseSize = 9;

// Attempts of the transport and its cap on the time-out (ms).
inline constexpr int transportAttempts = 5;
inline constexpr uint32_t transportTimeoutCapMs = 25000;
// Time-out of every command (ms).
inline constexpr uint32_t commandTimeoutMs = 6000;

inline constexpr size_t componentInfoMaxEntries = 100;
inline constexpr size_t componentInfoMaxRequests = 100;
inline constexpr size_t traceLogMaxEntries = 20000;

inline constexpr size_t imageDigestSize = 48;
inline constexpr size_t tokenSize = 634;
inline constexpr size_t deviceIdSize = 48;
inline constexpr size_t recordSize = 48;
inline constexpr size_t smcPersistSize = 16;
inline constexpr size_t keyRevokeBitsSize = 12;
inline constexpr size_t svnRevokeBitsSize = 58;
// Room of the buffer that ErotGetCertificationChain hands out.
inline constexpr size_t certificationChainBufferSize = 6196;

// The exchange with the device: sends `request` and copies the reply into
// `response`, reporting its length. The bus transport retries lost replies
// up to five times.
using TransportFn = int (*)(const uint8_t* request, size_t requestLength,
                            uint8_t* response, size_t responseCapacity,
                            uint32_t timeoutMs, size_t* pReceivedLength);

// The MCTP transport over the system bus.
int ErotTransportSendRecv(const uint8_t* request, size_t requestLength,
                          uint8_t* response, size_t responseCapacity,
                          uint32_t timeoutMs, size_t* pReceivedLength);

// Replaces the transport of every command; null restores
// ErotTransportSendRecv. Returns the one that was in use. Meant for tests
// and fuzzing, not to be changed while commands run.
TransportFn ErotSetTransport(TransportFn transport);

// One exchange. Fills the 8 header bytes of `request`. With a null
// `pResponseLength`, a successful response must be exactly `responseSize`
// bytes long.
int ErotTransact(uint8_t opcode, uint8_t* request, size_t requestLength,
                 uint8_t* response, size_t responseSize,
                 size_t* pResponseLength, uint8_t* pErrorCode);

// ---- boot partitions and flash sides ----------------------------------

int ErotActiveFlashConfigRead(uint32_t* pActive, uint32_t* pPending,
                              bool* pUpdateOnReboot, uint8_t* pErrorCode);
int ErotSignalBootSuccess(uint8_t stage, uint8_t* pErrorCode);
int ErotBPRRead(uint32_t* pCount, BootPartitionRecord** pEntries,
                uint8_t* pErrorCode);
int ErotARBCommit(uint8_t* pErrorCode);
int ErotSelectActiveFlash(uint8_t side, uint8_t persist, uint8_t* pErrorCode);
int ErotSystemReset(uint8_t resetType, uint8_t* pErrorCode);
int ErotGetAutoARBCommit(bool* pEnabled, uint8_t* pErrorCode);
int ErotSetAutoARBCommit(uint8_t enabled, uint8_t* pErrorCode);
int ErotGetResetReason(uint32_t* pReason, uint8_t* pErrorCode);
int ErotSetResetReason(uint32_t reason, uint8_t* pErrorCode);

// ---- image verification ------------------------------------------------

int ErotImageVerify(uint8_t flags, uint16_t componentId, const uint8_t* hash,
                    uint16_t dataLength, const uint8_t* data,
                    uint8_t* pErrorCode);

// ---- component information ---------------------------------------------

// Reads every page in the given format version (4, 3, anything else is
// 2). On success `*pEntries` is an array of 100 zeroed-then-filled slots of
// which `*pCount` are used.
int ErotGetComponentInfo(uint8_t version, uint32_t* pCount,
                         ComponentInfo** pEntries, uint8_t* pErrorCode);
int ErotGetComponentInfoV2(uint32_t* pCount, ComponentInfo** pEntries,
                           uint8_t* pErrorCode);
int ErotGetComponentInfoV3(uint32_t* pCount, ComponentInfo** pEntries,
                           uint8_t* pErrorCode);
int ErotGetComponentInfoV4(uint32_t* pCount, ComponentInfo** pEntries,
                           uint8_t* pErrorCode);

// ---- security state and tokens -----------------------------------------

int ErotGetBKCManifest(uint32_t* pCount, BkcManifestEntry** pEntries,
                       uint8_t* pErrorCode);
int ErotGetSecuritySettings(uint32_t* pSettings, bool* pNVTokenPresent,
                            uint32_t* pNVTokenSettings, uint8_t* pErrorCode);
int ErotSetManageabilityFeature(uint8_t feature, uint8_t value,
                                uint8_t* pErrorCode);
int ErotTokenInstall(const uint8_t* token, size_t tokenLength,
                     uint8_t* pErrorCode);
int ErotTokenErase(uint8_t* pErrorCode);
int ErotTokenRead(uint8_t** pToken, size_t* pTokenLength, uint8_t* pErrorCode);
int ErotGetDeviceId(uint8_t* buffer, size_t bufferLength, uint8_t* pErrorCode);
// `*pText` receives 96 hex digits and a terminating zero.
int ErotGetIdentityHex(char** pText, uint8_t* pErrorCode);
// `*pChain` receives a buffer of certificationChainBufferSize bytes whose
// first 16-bit value is the chain's length.
int ErotGetCertificationChain(uint8_t** pChain, uint8_t* pErrorCode);
int ErotKeyRevokeBitsGet(uint8_t* buffer, size_t length, uint16_t* pOutLength,
                         uint8_t* pErrorCode);
int ErotSvnRevokeBitsGet(uint8_t* buffer, uint16_t* pOutLength,
                         uint8_t* pErrorCode);

// ---- persistent records and plain commands -----------------------------

int ErotSMCPersistGet(uint8_t* buffer, size_t length, uint16_t* pOutLength,
                      uint8_t* pErrorCode);
int ErotSMCPersistSet(const uint8_t* buffer, size_t length,
                      uint8_t* pErrorCode);
int ErotGetOneByte(uint8_t* pValue, uint8_t* pErrorCode);
int ErotCommand19(uint8_t* pErrorCode);
int ErotCommand1A(uint8_t* pErrorCode);
int ErotCommandF0(uint8_t* pErrorCode);
int ErotCommandF1(uint32_t value, uint8_t* pErrorCode);
int ErotRecordSet(const uint8_t* record, size_t length, uint8_t* pErrorCode);
int ErotRecordClear(uint8_t* pErrorCode);
int ErotRecordGet(bool* pPresent, uint8_t* record, uint8_t* pErrorCode);

// ---- trace log and health ----------------------------------------------

// Both deliver 21-byte records in an array of 20,000 slots.
int ErotGetTraceLog(uint32_t* pCount, TraceLogEntry** pEntries,
                    bool* pOverflowed, uint8_t* pErrorCode);
int ErotGetTraceLogBasic(uint32_t* pCount, TraceLogEntry** pEntries,
                         bool* pOverflowed, uint8_t* pErrorCode);
// pHealth[0] is the device's health byte, pHealth[1] is always 0xFF.
int ErotHealthStatusPoll(uint8_t* pHealth, uint8_t* pErrorCode);

} // namespace erot
