#pragma once

#include "secure-boot/ahdr.hpp"
#include "secure-boot/boot_context.hpp"
#include "secure-boot/fw_type.hpp"

#include <array>
#include <cstdint>
#include <memory>
#include <string>

namespace orvane
{

class SecureBootService;

using Sha384 = std::array<uint8_t, 48>;

// One component's image pair on the SMC's storage: Fetch reads its AHDR and
// takes the image's digest, Verify has the eRoT judge them. The secure boot
// driver treats every component alike; what differs lives in a subclass.
class ImageProcessStrategy
{
  public:
    ImageProcessStrategy(uint8_t activeSide, const std::string& ahdrFile,
                         const std::string& imageFile);
    virtual ~ImageProcessStrategy() = default;

    // True on success; never throws, never halts.
    virtual bool Fetch();
    // True when the eRoT accepts the active AHDR and digest.
    virtual bool Verify();

    // Null until the driver sets it; handed to the eRoT calls.
    BootContext* bootContext = nullptr;
    uint8_t activeSide;
    Sha384 activeHash{};
    Sha384 deviceHash{};
    Sha384 inactiveHash{};
    std::string activeDumpPath;
    std::string ifwiDumpPrefix;
    std::string inactiveDumpPath;
    std::string activeImagePath;
    std::string inactiveImagePath;
    std::string activeAhdrPath;
    std::string inactiveAhdrPath;
    // Bit i set: OAM i is absent.
    uint32_t oamMask = 0;
    AhdrHeader activeAhdr{};
    AhdrHeader inactiveAhdr{};
};

class RetimerImageStrategy : public ImageProcessStrategy
{
    using ImageProcessStrategy::ImageProcessStrategy;
};

class VrImageStrategy : public ImageProcessStrategy
{
    using ImageProcessStrategy::ImageProcessStrategy;
};

class RmImageStrategy : public ImageProcessStrategy
{
    using ImageProcessStrategy::ImageProcessStrategy;
};

class IfwiImageStrategy : public ImageProcessStrategy
{
  public:
    using ImageProcessStrategy::ImageProcessStrategy;

    std::array<uint32_t, 4> extra{};
};

// The image is read back from the device's flash and hashed there, so
// Fetch only reads the AHDR.
class UbbFpgaImageStrategy : public ImageProcessStrategy
{
  public:
    using ImageProcessStrategy::ImageProcessStrategy;
    bool Fetch() override;

    std::array<uint32_t, 2> extra{};
};

// Fetch also writes the bundle version to every OAM's RM, before it looks
// at the magic.
class BundleImageStrategy : public ImageProcessStrategy
{
  public:
    using ImageProcessStrategy::ImageProcessStrategy;
    bool Fetch() override;
};

// The strategy of a component with an image pair, on the service's active
// side; null for any other identifier (EROT, APCFG, SMC, SMC_FPGA).
std::shared_ptr<ImageProcessStrategy> CreateImageStrategy(
    const SecureBootService& service, uint32_t componentId);

// The file pair of a component with a strategy, e.g. "ifwi.ahdr" and
// "ifwi.bin"; false for any other identifier.
bool StrategyFiles(uint32_t componentId, std::string& ahdrFile,
                   std::string& imageFile);

} // namespace orvane
