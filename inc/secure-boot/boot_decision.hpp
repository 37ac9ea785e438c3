#pragma once

namespace orvane
{

class SecureBootService;

// After the components: the OAM 3.3 V cycle that new regulator settings
// need, the halt when a component failed, and the boot success signal with
// the anti-rollback choice.
void finishSecureBoot(SecureBootService& service);

} // namespace orvane
