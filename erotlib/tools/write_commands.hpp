#pragma once

#include "invocation.hpp"
#include "result.hpp"

// The subcommands that change the eRoT's state. They are reached only with
// --write; each checks its operands before anything is sent.
namespace erotctl
{

Result writeSelectFlash(const Invocation& call);
Result writeSignalBootSuccess(const Invocation& call);
Result writeArbCommit(const Invocation& call);
Result writeSetAutoArb(const Invocation& call);
Result writeSetResetReason(const Invocation& call);
Result writeSystemReset(const Invocation& call);
Result writePersistSet(const Invocation& call);
Result writeSetManageability(const Invocation& call);

} // namespace erotctl
