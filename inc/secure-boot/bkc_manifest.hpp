#pragma once

namespace orvane
{

class SecureBootService;

// Reads the eRoT's BKC manifest into the service's manifest records; false,
// with its event, when the eRoT can't give it.
bool readBkcManifest(SecureBootService& service);

} // namespace orvane
