#pragma once

#include "erotlib/wire_structs.hpp"

#include <functional>
#include <string>

namespace orvane
{

class SecureBootService;

// Reads the eRoT's persist record into the service's working copy and
// `record`; false, with both as they were, unless the read is good.
bool ReadPersist(SecureBootService& service, erot::SmcPersistRecord& record);

// The read, `change` and the write back, false without a word when the
// read isn't good.
bool ChangePersist(SecureBootService& service,
                   const std::function<void(erot::SmcPersistRecord&)>& change);

// Reads the eRoT's persist record into the service's working copy and, when
// the read is good (status 0, 16 bytes), applies `change` and writes it
// back. A bad read logs "<name> Get_SMC_Persist process error." and the
// change is dropped; a dead link halts inside the eRoT call.
void UpdatePersist(SecureBootService& service, const std::string& name,
                   const std::function<void(erot::SmcPersistRecord&)>& change);

// The same, but the record is written back only when `change` answers
// true. False when the read was bad.
bool UpdatePersistIf(
    SecureBootService& service, const std::string& name,
    const std::function<bool(erot::SmcPersistRecord&)>& change);

} // namespace orvane
