#pragma once

#include "invocation.hpp"
#include "result.hpp"

// The subcommands that only read the eRoT. Each makes one library call and
// decodes what came back; operands have been counted by the caller.
namespace erotctl
{

// Boot sides and persistent state (flash_reads.cpp).
Result readActiveFlash(const Invocation& call);
Result readBpr(const Invocation& call);
Result readPersist(const Invocation& call);
Result readAutoArb(const Invocation& call);
Result readResetReason(const Invocation& call);

// Firmware components (component_reads.cpp).
Result readComponentInfo(const Invocation& call);
Result readBkcManifest(const Invocation& call);

// Identity, keys and tokens (security_reads.cpp).
Result readSecuritySettings(const Invocation& call);
Result readDeviceId(const Invocation& call);
Result readIdentityHex(const Invocation& call);
Result readKeyRevokeBits(const Invocation& call);
Result readSvnRevokeBits(const Invocation& call);
Result readTokenRead(const Invocation& call);
Result readRecordGet(const Invocation& call);

// The certification chain (certificate_chain_read.cpp).
Result readCertChain(const Invocation& call);

// The device's own log and health (log_reads.cpp).
Result readTraceLog(const Invocation& call);
Result readHealth(const Invocation& call);

} // namespace erotctl
