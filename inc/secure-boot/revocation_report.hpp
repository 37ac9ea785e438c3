#pragma once

#include "erotlib/wire_structs.hpp"
#include "secure-boot/boot_context.hpp"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace orvane
{

// The SVN result of an anti-rollback commit, one event per active
// component. Halts when the component info can't be read.
void ReportRevocation(BootContext& context);

// The eRoT's component info records; a refusal logs "Get_Component_Info
// fail." and halts, as a failed link already does in the call.
std::vector<erot::ComponentInfo> ReadComponentInfoOrHalt(BootContext& context);

// The state that a key or SVN revocation status byte stands for: "not
// requested", "requested but not completed" or "completed"; empty for any
// other value.
std::string_view RevocationState(uint8_t status);

// One revocation event of the ResourceEvent registry ("RevocationFailedOEM",
// "RevocationSuccessOEM", "RevocationStateOEM"). Its argument is the name,
// `what` ("KeyID" or "SVN"), the value as "0x" and eight hex digits, and
// the state when there is one, joined by ","; its text is the name followed
// by `text`.
void RaiseRevocationEvent(std::string_view event, const std::string& name,
                          std::string_view what, uint32_t value,
                          std::string_view state, const std::string& text);

} // namespace orvane
