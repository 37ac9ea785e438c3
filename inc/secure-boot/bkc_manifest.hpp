#pragma once

#include "secure-boot/fw_type.hpp"

#include <string>

namespace orvane
{

class SecureBootService;

// Reads the eRoT's BKC manifest into the service's manifest records; false,
// with its event, when the eRoT can't give it.
bool readBkcManifest(SecureBootService& service);

// The manifest records of all twelve components, each at version 0.
void ClearBkcManifest(SecureBootService& service);

// The manifest version of a component as the update tools take it: "0x"
// and eight hexadecimal digits, "0x00000000" until the manifest is read.
std::string ManifestVersionText(FwType id);

} // namespace orvane
