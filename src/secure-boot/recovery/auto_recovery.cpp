#include "secure-boot/auto_recovery.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/bpr_table.hpp"
#include "secure-boot/erot_calls.hpp"
#include "secure-boot/hash_file.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/inactive_side.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "utils/hex_text.hpp"
#include "utils/platform/platform.hpp"

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::ERR;
using logging::level::INFO;

// A manifest version that accepts a backup of any version.
constexpr uint32_t anyVersion = 0xFFFFFFFF;
// How long a flipped component waits for the SMC reset that the eRoT was
// asked for; it comes within seconds of the request.
constexpr unsigned resetWaitSeconds = 30;

// How the logs name a component whose backup can be checked: once beside
// its versions, once where its hash failed. RMC and RM differ on purpose:
// the operators' tooling matches them.
struct BackupLabels
{
    const char* versions;
    const char* hash;
};

bool LabelsOf(FwType id, BackupLabels& labels)
{
    switch (id)
    {
        case FwType::Retimer:
            labels = {"Retimer", "Retimer"};
            return true;
        case FwType::Retimer_1:
            labels = {"Retimer_1", "Retimer_1"};
            return true;
        case FwType::Retimer_2:
            labels = {"Retimer_2", "Retimer_2"};
            return true;
        case FwType::IFWI:
            labels = {"IFWI", "IFWI"};
            return true;
        case FwType::RM:
            labels = {"RMC", "RM"};
            return true;
        case FwType::UBB_FPGA:
            labels = {"UBBFPGA", "UBB-FPGA"};
            return true;
        default:
            return false;
    }
}

// The manifest knows one version for all three retimers.
uint32_t ManifestVersion(SecureBootService& service, const std::string& name)
{
    const std::string key =
        name == "Retimer_1" || name == "Retimer_2" ? "Retimer" : name;
    // A component the manifest lacks has version 0. Nothing is added to
    // the map: other component threads read it.
    uint32_t version = 0;
    if (auto found = service.bkcManifest.find(key);
        found != service.bkcManifest.end())
    {
        version = found->second.version;
    }
    ConsoleLog(INFO) << key << " BKC VERSION = 0x" << HexText(version);
    return version;
}

std::string VersionHex(uint32_t version)
{
    return "0x" + HexText(version, 8);
}

bool Fail(const std::string& name, const char* text)
{
    NvEvent(CRITICAL, "AutomaticRecoveryFailureCritical", name, "", "") << text;
    return false;
}

} // namespace

BackupResult verifyBackupImage(SecureBootService& service,
                               ImageProcessStrategy& strategy,
                               const std::string& name, FwType id)
{
    const uint32_t manifest = ManifestVersion(service, name);
    if (manifest == 0)
    {
        ConsoleLog(ERR) << "READ BKC FALSE";
        return BackupResult::noManifest;
    }
    const uint32_t backup = strategy.inactiveAhdr.currentSWVersion;
    if (backup != manifest && manifest != anyVersion)
    {
        ConsoleLog(ERR)
            << "Versions of failed image and backup copy are NOT the same";
        return BackupResult::otherVersion;
    }
    ConsoleLog(INFO)
        << "Versions of failed image and backup image are the same";

    BackupLabels labels{};
    if (!LabelsOf(id, labels))
    {
        return BackupResult::notRecoverable;
    }
    ConsoleLog(INFO) << "autoRecoveryMode " << labels.versions
                     << " CurrentSWVersion = "
                     << VersionHex(strategy.activeAhdr.currentSWVersion);
    ConsoleLog(INFO) << "autoRecoveryMode " << labels.versions
                     << " inactive_CurrentSWVersion = " << VersionHex(backup);
    std::string image = strategy.inactiveImagePath;
    if (id == FwType::UBB_FPGA)
    {
        ConsoleLog(INFO) << "Calculate hash of inactive UBB-FPGA image";
        image = strategy.inactiveDumpPath;
    }
    // A failed hash leaves a digest that the eRoT refuses: its answer
    // decides.
    if (!HashFile(image, strategy.inactiveAhdr.verifiablePayloadSize,
                  strategy.inactiveHash))
    {
        ConsoleLog(ERR) << "autoRecoveryMode " << labels.hash
                        << " CalculateHash fail";
    }

    NvEvent(INFO, "Update.1.0.1.VerifyingAtComponent", name + ",ERoT", "", "")
        << "ERoT Starts verifying the " << name << " backup image.";
    // The image's own identifier: a retimer backup may carry another
    // retimer's image.
    const int status = ErotImageVerify(
        *service.criticalSection, strategy.inactiveAhdr.componentId,
        strategy.inactiveHash.data(),
        reinterpret_cast<const uint8_t*>(&strategy.inactiveAhdr));
    if (status != 0)
    {
        ConsoleLog(ERR) << "Backup image verify failed";
        NvEvent(CRITICAL, "Update.1.0.1.VerificationFailed", name + ",ERoT", "",
                "")
            << "Verify " << name << " backup image failed!!!";
        return BackupResult::refused;
    }
    NvEvent(INFO, "SecureFWVerifySuccess", name, "", "")
        << "Backup image verify OK";
    TurnSideOf(*service.bprTable, id);
    return BackupResult::verified;
}

bool autoRecoveryProcess(SecureBootService& service,
                         const std::shared_ptr<ImageProcessStrategy>& strategy,
                         const std::string& name, FwType id)
{
    NvEvent(INFO, "AutomaticRecoveryTriggered", name, "", "")
        << "Component " << name << " enters auto recovery mode.";
    if (!strategy || !initInactiveSide(*strategy, static_cast<uint32_t>(id)))
    {
        return Fail(name, "Failed to initialize Inactive Side");
    }
    switch (verifyBackupImage(service, *strategy, name, id))
    {
        case BackupResult::verified:
        {
            std::lock_guard<std::mutex> hold(service.lock);
            for (ComponentEntry& entry : service.components)
            {
                if (entry.name == name)
                {
                    entry.recovered = true;
                }
            }
            return true;
        }
        case BackupResult::otherVersion:
            if (!failoverFlip(service, id, name))
            {
                return Fail(name, "Failed to flip to the other side");
            }
            // Nothing verified this side's image: powering the component
            // on would program the image the eRoT refused, and its success
            // would clear the failover bit before the reset, so that the
            // other side could flip back for ever. The reset ends this
            // process; only a reset that never comes gets past here.
            platform::sleepSeconds(resetWaitSeconds);
            return Fail(name, "No SMC reset after the failover flip");
        case BackupResult::refused:
            return Fail(name, "Backup image verify failed");
        case BackupResult::notRecoverable:
            return Fail(name, "Unknown firmware type");
        case BackupResult::noManifest:
        default:
            return Fail(name, "Read BKC false");
    }
}

} // namespace orvane
