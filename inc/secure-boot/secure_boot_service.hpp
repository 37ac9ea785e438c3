#pragma once

#include "erotlib/wire_structs.hpp"
#include "orvane/orvane_svc_state.hpp"
#include "secure-boot/ahdr.hpp"
#include "secure-boot/boot_context.hpp"
#include "secure-boot/fw_type.hpp"

#include <semaphore.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace orvane
{

class ImageProcessStrategy;
class OamVrUpdater;
class UbbVrUpdater;

// Verification time per component, in seconds, for the boot time report.
using ComponentTimes = std::map<std::string, double>;

// One component that boots through the secure boot driver.
struct ComponentEntry
{
    std::string name;
    FwType id;
    bool recovered = false;
};

// The side of each component as the eRoT's boot partition records give it,
// and the SMC FPGA's digests of both sides.
struct BprTable
{
    std::map<FwType, uint32_t> sides;
    std::array<uint8_t, 48> smcFpgaActiveHash{};
    std::array<uint8_t, 48> smcFpgaInactiveHash{};
};

// The active and the inactive side's AHDR-shaped block of a component that
// has no AHDR file: filled from what the eRoT reports.
struct AhdrPair
{
    AhdrHeader active{};
    AhdrHeader inactive{};
};

// Bits of the persist record that the boot gives meaning to.
namespace persist
{
constexpr size_t flagsByte = 0;
constexpr uint8_t SECURE_BOOT_FINISHED = 0x04;
constexpr uint8_t FIRMWARE_COPY_COMPLETED = 0x08;
constexpr size_t smcFpgaRecoveryTriedByte = 4;
constexpr size_t failoverByte = 10;
constexpr uint8_t FAILOVER_UBB_FPGA = 0x01;
constexpr uint8_t FAILOVER_RETIMER = 0x02;
constexpr uint8_t FAILOVER_RM = 0x04;
constexpr uint8_t FAILOVER_IFWI = 0x08;
} // namespace persist

// The one record that all of secure boot works on. Made once and never
// destroyed. The main thread and the component threads share it without a
// lock, as the boot's order allows: each component thread writes only its
// own strategy slot, time row and entry.
class SecureBootService
{
  public:
    // Reads all that the boot needs from the eRoT and checks the components
    // that no driver step verifies; may reset the SMC or halt.
    SecureBootService(sem_t* criticalSection, bool hostPowerOn);
    // The record alone, without a word to the eRoT: for tools and tests.
    struct RecordOnly
    {};
    static constexpr RecordOnly recordOnly{};
    SecureBootService(sem_t* criticalSection, bool hostPowerOn, RecordOnly);
    // The daemon's never ends; those of tools and tests give back the
    // component info buffer.
    ~SecureBootService();

    void runUbbVrUpdate();
    void runSecureBoot(OrvaneSvcState& state);
    void getComponentTimes(ComponentTimes& times) const;
    // The firmware copy; posts the semaphore when it is over.
    bool parallelTask(sem_t* semaphore);

    // The eight components of the driver, in boot order.
    std::vector<ComponentEntry> components;
    // The Boot Critical Section, and the first argument of every eRoT call.
    std::shared_ptr<BootContext> criticalSection;
    std::shared_ptr<BprTable> bprTable;
    // The working copy of the eRoT's 16-byte persist record.
    std::shared_ptr<erot::SmcPersistRecord> persist;
    uint8_t activeSide = 0;
    uint8_t selectedSide = 0;
    bool updateOnReboot = false;
    erot::ComponentInfo* componentInfo = nullptr;
    uint32_t componentInfoCount = 0;
    AhdrPair erotInfo;
    AhdrPair smcInfo;
    AhdrPair smcFpgaInfo;
    AhdrPair apcfgInfo;
    OrvaneSvcState* state = nullptr;

    std::shared_ptr<ImageProcessStrategy> vrStrategy;
    std::shared_ptr<ImageProcessStrategy> ubbFpgaStrategy;
    std::shared_ptr<ImageProcessStrategy> retimerStrategy;
    std::shared_ptr<ImageProcessStrategy> retimer1Strategy;
    std::shared_ptr<ImageProcessStrategy> retimer2Strategy;
    std::shared_ptr<ImageProcessStrategy> rmStrategy;
    std::shared_ptr<ImageProcessStrategy> ifwiStrategy;
    std::shared_ptr<ImageProcessStrategy> bundleStrategy;

    // Guards bootTimes and componentInfoByName, which component threads
    // write side by side.
    mutable std::mutex lock;
    std::map<std::string, double> bootTimes;
    std::shared_ptr<OamVrUpdater> oamVrService;
    std::shared_ptr<UbbVrUpdater> ubbVrService;
    std::map<std::string, erot::BkcManifestEntry> bkcManifest;
    std::map<std::string, erot::ComponentInfo> componentInfoByName;
    std::vector<std::shared_future<void>> bootThreads;
    std::atomic<uint32_t> bootFailureState{0};
    std::atomic<uint32_t> recoveredCount{0};
    // Serialises the read-modify-write of the persist record between the
    // component threads: the last writer still wins, but defined.
    std::mutex persistLock;

    // The strategy slot of a driver component; null for any other id.
    std::shared_ptr<ImageProcessStrategy>* strategySlot(FwType id);

  private:
    // The eRoT reads and checks of the constructor, in their order
    // (service_start.cpp).
    void start();

    bool hostPowerOn;
};

// The components of the driver in their boot order, none recovered.
std::vector<ComponentEntry> DriverComponents();

} // namespace orvane
