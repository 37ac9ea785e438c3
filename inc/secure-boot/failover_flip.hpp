#pragma once

#include "secure-boot/fw_type.hpp"

#include <cstdint>
#include <string>

namespace orvane
{

class SecureBootService;

// The persist record's failover bit of a component family (byte 10): the
// three retimers share one. 0 for an identifier without a family.
uint8_t FailoverBit(FwType id);

// Sends the SMC to its other flash, once per component family until a
// success clears the family's bit again. True once the reset is asked for:
// the caller goes on as if recovered until the reset ends the process.
bool failoverFlip(SecureBootService& service, FwType id,
                  const std::string& name);

} // namespace orvane
