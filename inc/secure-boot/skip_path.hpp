#pragma once

namespace orvane
{

class SecureBootService;

// Whether a previous run in this power cycle finished secure boot (a good
// persist read with SECURE_BOOT_FINISHED set).
bool secureBootFinished(SecureBootService& service);

// The regulator checks that a restart still owes, then "Skip Secure Boot".
void runSkipPath(SecureBootService& service);

} // namespace orvane
