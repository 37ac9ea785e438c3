#pragma once

#include "erotlib/wire_structs.hpp"

#include <functional>
#include <string>

namespace orvane
{

class SecureBootService;

// Reads the eRoT's persist record into the service's working copy. False
// when the read isn't good (status 0 and 16 bytes): the copy is left as it
// was and "<name> Get_SMC_Persist process error." is logged. A dead link
// halts inside the eRoT call.
bool ReadPersist(SecureBootService& service, const std::string& name = "");

// ReadPersist and, when the read is good, `change` applied to the working
// copy and written back. A bad read drops the change.
void UpdatePersist(SecureBootService& service, const std::string& name,
                   const std::function<void(erot::SmcPersistRecord&)>& change);

} // namespace orvane
