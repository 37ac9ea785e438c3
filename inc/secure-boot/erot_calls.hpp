#pragma once

#include "erotlib/wire_structs.hpp"
#include "secure-boot/ahdr.hpp"
#include "secure-boot/boot_context.hpp"

#include <sdbus-c++/Types.h>

#include <cstdint>
#include <vector>

// The eRoT commands as the boot uses them: each puts its banner on the
// console, runs the command and decides what a failure means. A failed link
// during boot halts through BootFailure; a refusal by the device is reported
// and its status byte returned for the caller to act on. The anti-rollback
// calls serve management clients and never halt.
namespace orvane
{

int ErotActiveFlashConfigRead(BootContext& context, uint32_t* pActive,
                              uint32_t* pPending, bool* pUpdateOnReboot);
// `hash` is the image's 48-byte SHA-384, `ahdr` the whole 578-byte header.
int ErotImageVerify(BootContext& context, uint16_t componentId,
                    const uint8_t* hash, const uint8_t* ahdr);
int ErotSignalBootSuccess(BootContext& context, uint8_t stage);
int ErotBPRRead(BootContext& context, uint32_t* pCount,
                erot::BootPartitionRecord** pEntries);
int ErotSelectActiveFlash(BootContext& context, uint8_t side, uint8_t persist);
// Format version 4; a protocol error is retried up to five reads.
int ErotGetComponentInfo(BootContext& context, uint32_t* pCount,
                         erot::ComponentInfo** pEntries);
// True when the manifest was read into `entries`.
bool ErotGetBKCManifest(BootContext& context,
                        std::vector<erot::BkcManifestEntry>& entries);
// Waits 10 seconds before it sends the command.
int ErotSystemReset(BootContext& context, uint8_t resetType);
int ErotSMCPersistGet(BootContext& context, uint8_t* buffer, size_t length,
                      uint16_t* pOutLength);
int ErotSMCPersistSet(BootContext& context, const uint8_t* buffer,
                      size_t length);

// The library's return when it is not 0, else the device's status.
int ErotARBCommit(BootContext& context);
int ErotGetAutoARBCommit(BootContext& context, bool* pEnabled);
int ErotSetAutoARBCommit(BootContext& context, bool enabled);

// 255 when the link failed, else the status.
int ErotSetResetReason(BootContext& context, uint32_t reason);

// The bodies of the D-Bus methods GetAutoARBCommit (the result as an int
// and the value as a bool) and SetAutoARBCommit (the result).
std::vector<sdbus::Variant> GetAutoARBCommit(BootContext& context);
int SetAutoARBCommit(BootContext& context, bool enabled);

} // namespace orvane
