#pragma once

#include "secure-boot/failover_flip.hpp"
#include "secure-boot/fw_type.hpp"

#include <memory>
#include <string>

namespace orvane
{

class ImageProcessStrategy;
class SecureBootService;

// What verifyBackupImage found.
enum class BackupResult : int
{
    verified = 0,       // bprTable turned to the other side
    otherVersion = 1,   // not the manifest's version: flip the SMC
    refused = 2,        // the eRoT refused the backup
    notRecoverable = 3, // no backup for this identifier
    noManifest = 4,     // the manifest has no version for it
};

// Whether the component may go on to its power-on after its active image
// failed: only a backup boot lets it. A failover flip waits for the SMC
// reset that it asked for, and fails when none comes.
bool autoRecoveryProcess(SecureBootService& service,
                         const std::shared_ptr<ImageProcessStrategy>& strategy,
                         const std::string& name, FwType id);

BackupResult verifyBackupImage(SecureBootService& service,
                               ImageProcessStrategy& strategy,
                               const std::string& name, FwType id);

} // namespace orvane
