// What the secure boot service reads from the eRoT before any component is
// touched, and the checks of the four components that no driver step
// verifies.
#include "secure-boot/service_start.hpp"

#include "erotlib/erot.hpp"
#include "logging/log_line.hpp"
#include "secure-boot/bkc_manifest.hpp"
#include "secure-boot/boot_failure.hpp"
#include "secure-boot/bpr_table.hpp"
#include "secure-boot/cache_image_info.hpp"
#include "secure-boot/erot_calls.hpp"
#include "secure-boot/image_info_bus.hpp"
#include "secure-boot/image_paths.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/persist_update.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "utils/dbus_handler.hpp"
#include "utils/hex_text.hpp"
#include "utils/platform/platform.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::ERR;
using logging::level::INFO;
using logging::level::WARNING;

constexpr int commandAttempts = 3;
constexpr const char* retryEvent = "ResourceEvent.1.2.1.ResourceRetryFailOEM";
// Told to the eRoT before the reset that a finished boot asks for with the
// host off.
constexpr uint32_t finishedBootResetReason = 3;
constexpr uint8_t resetSmc = 1;
constexpr uint8_t smcFpgaFlipped = 1;

const RetryTexts activeFlashTexts{
    "ErotActiveFlashConfigRead", "Active Flash Config Read failed. Retry ",
    "Read Active Flash Config from ERoT failed after retry 3 times."};
const RetryTexts bprTexts{
    "ErotBPRRead", "Read Boot Partition Record Failed. Retry ",
    "Read Boot Partition Record from ERoT failed after retry 3 times."};
const RetryTexts componentInfoTexts{"ErotGetComponentInfo",
                                    "Get Component Info failed. Retry ",
                                    "Get Component Info failed after retry 3 "
                                    "times."};

// The four components whose integrity the start checks itself, and how
// their lines name them.
struct CheckedComponent
{
    FwType id;
    // "Read the Componet info FwType ..." and "The ... secure_boot_status
    // check has failed"
    const char* name;
    const char* fetchName; // "Fetching ... active AHDR..."
    AhdrPair SecureBootService::*block;
};
constexpr CheckedComponent checkedComponents[] = {
    {FwType::SMC, "SMC", "SMC", &SecureBootService::smcInfo},
    {FwType::EROT, "eRoT", "eRoT", &SecureBootService::erotInfo},
    {FwType::SMC_FPGA, "SMCFPGA", "SMC-FPGA", &SecureBootService::smcFpgaInfo},
    {FwType::APCFG, "APCFG", "APCFG", &SecureBootService::apcfgInfo},
};

std::string hexBytes(const uint8_t* bytes, size_t length)
{
    std::string text;
    for (size_t i = 0; i < length; ++i)
    {
        text += HexText(bytes[i], 2);
    }
    return text;
}

void writePersistOrHalt(SecureBootService& service)
{
    uint8_t status = 0;
    const int result = erot::ErotSMCPersistSet(
        reinterpret_cast<const uint8_t*>(service.persist.get()),
        sizeof(erot::SmcPersistRecord), &status);
    if (result != 0)
    {
        ConsoleLog(ERR)
            << "Fail to transfer smcpersistset command. Enter System Halt";
        BootFailure(*service.criticalSection);
    }
    if (status != 0)
    {
        ConsoleLog(ERR) << "Error response. Error Code: 0x" << HexText(status);
        ConsoleLog(ERR) << "Enter System Halt";
        BootFailure(*service.criticalSection);
    }
}

// A restart with the host off after a finished secure boot: the boot must
// run again from a full reset. The start goes on until the reset strikes.
void resetAfterFinishedBoot(SecureBootService& service)
{
    ConsoleLog(INFO)
        << "Secure boot has finished. The host power is OFF. Do SMC Reset!!";
    service.persist->flags &=
        static_cast<uint8_t>(~persist::SECURE_BOOT_FINISHED);
    writePersistOrHalt(service);
    ErotSetResetReason(*service.criticalSection, finishedBootResetReason);
    ErotSystemReset(*service.criticalSection, resetSmc);
}

void readActiveFlashConfig(SecureBootService& service)
{
    RetryErotCommand(*service.criticalSection, activeFlashTexts, [&] {
        uint32_t active = sideA;
        uint32_t selected = sideA;
        bool updateOnReboot = false;
        const int status = ErotActiveFlashConfigRead(
            *service.criticalSection, &active, &selected, &updateOnReboot);
        service.activeSide = static_cast<uint8_t>(active);
        service.selectedSide = static_cast<uint8_t>(selected);
        service.updateOnReboot = updateOnReboot;
        return status;
    });
    if (service.updateOnReboot)
    {
        ConsoleLog(INFO) << "Set updateOnReboot";
        SetBusProperty(ImageInfoInterface("EROT"), "UpdateOnReboot", "True");
    }
}

// True when the eRoT holds a record for the SMC FPGA.
bool readBootPartitionRecords(SecureBootService& service)
{
    for (const FwNames& names : fwNames)
    {
        service.bprTable->sides[names.id] = service.activeSide;
    }
    uint32_t count = 0;
    erot::Owned<erot::BootPartitionRecord> records;
    RetryErotCommand(*service.criticalSection, bprTexts, [&] {
        erot::BootPartitionRecord* raw = nullptr;
        const int status = ErotBPRRead(*service.criticalSection, &count, &raw);
        records.reset(raw);
        return status;
    });
    ConsoleLog(INFO) << "The count of the BPR read from RoT is " << count;
    bool smcFpgaFound = false;
    for (uint32_t i = 0; i < count && records; ++i)
    {
        const erot::BootPartitionRecord& record = records.get()[i];
        ConsoleLog(INFO) << "Component ID: 0x" << HexText(record.componentId);
        ConsoleLog(INFO) << "Side = " << unsigned{record.side};
        service.bprTable->sides[static_cast<FwType>(record.componentId)] =
            record.side;
        if (static_cast<FwType>(record.componentId) == FwType::SMC_FPGA)
        {
            smcFpgaFound = true;
            ConsoleLog(INFO) << "Get SMC FPGA BPR successfully, don't need to "
                                "do auto recovery.";
        }
    }
    return smcFpgaFound;
}

// No record for the SMC FPGA: it didn't come up from its flash. The first
// time the other flash is tried, through an SMC reset; the second time the
// board needs a person.
void checkSmcFpga(SecureBootService& service)
{
    erot::SmcPersistRecord record{};
    if (!ReadPersist(service, record))
    {
        return;
    }
    if (service.persist->smcFpgaAutoFlipped == smcFpgaFlipped)
    {
        NvEvent(WARNING, "SecureFWUnexpectedRespWarning", "SMC FPGA", "", "")
            << "SMC FPGA is broken, must do manual reset!";
        BootFailure(*service.criticalSection);
    }
    NvEvent(INFO, "AutomaticRecoveryTriggered", "SMC_FPGA", "", "")
        << "Component SMC_FPGA enters auto recovery mode.";
    const bool onA = service.activeSide == sideA;
    ConsoleLog(WARNING) << "=== auto recovery SMC FPGA FLASH "
                        << (onA ? "A" : "B") << " is broken === ";
    ConsoleLog(WARNING) << (onA ? "Change the flash from FLASH A to FLASH B"
                                : "Change the flash from FLASH B to FLASH A");
    ErotSelectActiveFlash(*service.criticalSection,
                          OtherSide(service.activeSide), 1);
    service.persist->smcFpgaAutoFlipped = smcFpgaFlipped;
    ErotSMCPersistSet(*service.criticalSection,
                      reinterpret_cast<const uint8_t*>(service.persist.get()),
                      sizeof(erot::SmcPersistRecord));
    ErotSystemReset(*service.criticalSection, resetSmc);
}

void readComponentInfo(SecureBootService& service)
{
    RetryErotCommand(*service.criticalSection, componentInfoTexts, [&] {
        std::free(service.componentInfo);
        service.componentInfo = nullptr;
        return ErotGetComponentInfo(*service.criticalSection,
                                    &service.componentInfoCount,
                                    &service.componentInfo);
    });
    FileComponentInfo(
        service, {service.componentInfo,
                  service.componentInfo ? service.componentInfoCount : 0U});
}

void fileCheckedRecord(SecureBootService& service,
                       const CheckedComponent& checked,
                       const erot::ComponentInfo& record)
{
    ConsoleLog(INFO) << "Read the Componet info FwType " << checked.name;
    const bool active = record.active != 0;
    ConsoleLog(INFO) << "Fetching " << checked.fetchName
                     << (active ? " active" : " inactive") << " AHDR...";
    bool integrityFailed = false;
    if (active && record.secureBootStatus == 0)
    {
        ConsoleLog(ERR) << "The " << checked.name
                        << " secure_boot_status check has failed";
        integrityFailed = true;
    }
    if (checked.id == FwType::SMC_FPGA && record.hashValid != 0)
    {
        auto& hash = active ? service.bprTable->smcFpgaActiveHash
                            : service.bprTable->smcFpgaInactiveHash;
        std::copy(std::begin(record.digest), std::end(record.digest),
                  hash.begin());
        ConsoleLog(INFO) << (active ? "SMC FPGA Active Image hash from RoT: "
                                    : "SMC FPGA Inactive Image hash from RoT: ")
                         << hexBytes(hash.data(), hash.size());
    }
    AhdrPair& pair = service.*checked.block;
    AhdrHeader& block = active ? pair.active : pair.inactive;
    block.currentSWVersion = record.version;
    block.securityVersion = record.svn;
    block.signingKeyId = record.keyId;
    block.customerId = record.customerId;
    block.variantId = record.variantId;
    std::memcpy(block.componentDetails, record.details,
                sizeof(block.componentDetails));
    ConsoleLog(INFO) << "Current SW Version: 0x" << HexText(record.version);
    ConsoleLog(INFO) << "SVN: 0x" << HexText(record.svn);
    ConsoleLog(INFO) << "Signing key ID: 0x" << HexText(record.keyId);
    ConsoleLog(INFO) << "Customer ID: 0x" << HexText(record.customerId);
    ConsoleLog(INFO) << "Variant ID: 0x" << HexText(record.variantId);
    ConsoleLog(INFO) << "Active: 0x" << HexText(record.active);
    ConsoleLog(INFO) << "Secure boot status: 0x"
                     << HexText(record.secureBootStatus);
    ConsoleLog(INFO) << "BKC good: 0x" << HexText(record.bkcGood);
    ConsoleLog(INFO) << "Component Details: " << RenderComponentDetails(block);
    if (integrityFailed)
    {
        ConsoleLog(ERR) << "The secure_boot_status check(BKC integrity) has "
                           "failed. Halt boot and enter FW recovery";
        BootFailure(*service.criticalSection);
    }
}

// With the host on, the driver's run will be skipped: what it would have
// published comes from the image pairs of the running side here.
void cacheRunningSide(SecureBootService& service)
{
    ConsoleLog(INFO)
        << "Caching the SMC side component info... (before skip secure boot)";
    const bool singleRetimer = ImagePairExists(service.activeSide, "retimer");
    for (const ComponentEntry& entry : service.components)
    {
        const bool retimerPair =
            entry.id == FwType::Retimer_1 || entry.id == FwType::Retimer_2;
        if (entry.id == FwType::VR)
        {
            continue;
        }
        if (singleRetimer && retimerPair)
        {
            ConsoleLog(INFO) << "Skip FwType::Retimer_1 and FwType::Retimer_2 "
                                "if retimer.bin and retimer.ahdr exist \n";
            continue;
        }
        if (!singleRetimer && entry.id == FwType::Retimer)
        {
            ConsoleLog(INFO) << "Skip FwType::Retimer if retimer.bin and "
                                "retimer.ahdr do not exist \n";
            continue;
        }
        const auto id = static_cast<uint32_t>(entry.id);
        auto strategy = CreateImageStrategy(service, id);
        if (!strategy)
        {
            ConsoleLog(CRITICAL)
                << "Fetch nullptr, no do the secure image cache info.";
            continue;
        }
        if (!strategy->Fetch())
        {
            PlainEvent(WARNING, "BundleCheckFailure", "", "", "")
                << "Fetch " << entry.name << " image failed!!!";
            continue;
        }
        CacheImageInfo(service, strategy, entry.name, id);
    }
}

} // namespace

void RetryErotCommand(BootContext& context, const RetryTexts& texts,
                      const std::function<int()>& command)
{
    for (int attempt = 1;; ++attempt)
    {
        if (command() == 0)
        {
            return;
        }
        const std::string argument = std::string("[Secure-Boot] eRoT API,") +
                                     texts.command + "," +
                                     std::to_string(attempt) + " times.";
        if (attempt < commandAttempts)
        {
            NvEvent(CRITICAL, retryEvent, argument, "", "")
                << texts.retry << attempt;
            continue;
        }
        NvEvent(CRITICAL, retryEvent, argument, "", "") << texts.gaveUp;
        BootFailure(context);
    }
}

void FileComponentInfo(SecureBootService& service,
                       std::span<const erot::ComponentInfo> records)
{
    for (const erot::ComponentInfo& record : records)
    {
        const FwNames* names = FindFwNames(record.componentId);
        if (names == nullptr)
        {
            continue;
        }
        {
            std::lock_guard guard(service.lock);
            service.componentInfoByName[std::string(names->cacheKey)] = record;
        }
        const auto* checked = std::find_if(
            std::begin(checkedComponents), std::end(checkedComponents),
            [&](const auto& c) { return c.id == names->id; });
        if (checked != std::end(checkedComponents))
        {
            fileCheckedRecord(service, *checked, record);
        }
    }
}

void SecureBootService::start()
{
    ConsoleLog(INFO) << "=== Read BKC Manifest ====";
    ClearBkcManifest(*this);
    readBkcManifest(*this);

    ConsoleLog(INFO) << "=== Initialize the Secure Boot Service ====";
    for (const FwNames& names : fwNames)
    {
        componentInfoByName[std::string(names.cacheKey)] = {};
    }
    bootFailureState = 0;
    bprTable->smcFpgaActiveHash = {};
    bprTable->smcFpgaInactiveHash = {};

    erot::SmcPersistRecord record{};
    if (!ReadPersist(*this, record))
    {
        ConsoleLog(ERR) << " Get_SMC_Persist process error.";
    }
    else if (!hostPowerOn &&
             (record.flags & persist::SECURE_BOOT_FINISHED) != 0)
    {
        resetAfterFinishedBoot(*this);
    }
    readActiveFlashConfig(*this);
    const bool smcFpgaRecord = readBootPartitionRecords(*this);
    PrintBprTable(*bprTable);
    // With the host on the SMC FPGA evidently runs: no flip under its feet.
    if (!hostPowerOn && !smcFpgaRecord)
    {
        checkSmcFpga(*this);
    }
    readComponentInfo(*this);
    for (auto [name, id] :
         {std::pair{"eRoT", FwType::EROT}, std::pair{"SMC", FwType::SMC},
          std::pair{"SMC-FPGA", FwType::SMC_FPGA},
          std::pair{"APCFG", FwType::APCFG}})
    {
        CacheImageInfo(*this, nullptr, name, static_cast<uint32_t>(id));
    }
    if (hostPowerOn)
    {
        cacheRunningSide(*this);
    }
    for (const char* side : {"/A", "/B"})
    {
        platform::shell().system("mkdir -p " + std::string(imageRoot) + side);
    }
}

} // namespace orvane
