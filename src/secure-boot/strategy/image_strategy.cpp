#include "secure-boot/image_strategy.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/bundle_version.hpp"
#include "secure-boot/erot_calls.hpp"
#include "secure-boot/hash_file.hpp"
#include "secure-boot/image_paths.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "utils/hex_text.hpp"

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::INFO;

constexpr int verifyRefused = 0x80;

} // namespace

ImageProcessStrategy::ImageProcessStrategy(uint8_t activeSide,
                                           const std::string& ahdrFile,
                                           const std::string& imageFile) :
    activeSide(activeSide),
    activeDumpPath(SidePath(workRoot, activeSide, imageFile)),
    ifwiDumpPrefix(SidePath(workRoot, activeSide, ifwiDumpStem)),
    inactiveDumpPath(SidePath(workRoot, OtherSide(activeSide), imageFile)),
    activeImagePath(SidePath(imageRoot, activeSide, imageFile)),
    inactiveImagePath(SidePath(imageRoot, OtherSide(activeSide), imageFile)),
    activeAhdrPath(SidePath(imageRoot, activeSide, ahdrFile)),
    inactiveAhdrPath(SidePath(imageRoot, OtherSide(activeSide), ahdrFile))
{}

bool ImageProcessStrategy::Fetch()
{
    ConsoleLog(INFO) << "Fetch AHDR image: [" << activeAhdrPath << "]";
    if (!ReadAhdr(activeAhdrPath, activeAhdr))
    {
        return false;
    }
    ConsoleLog(INFO) << "Calculate hash for FW image: [" << activeImagePath
                     << "]";
    return HashFile(activeImagePath, activeAhdr.verifiablePayloadSize,
                    activeHash);
}

bool ImageProcessStrategy::Verify()
{
    BootContext none;
    int status = ErotImageVerify(bootContext ? *bootContext : none,
                                 activeAhdr.componentId, activeHash.data(),
                                 reinterpret_cast<const uint8_t*>(&activeAhdr));
    if (status == 0)
    {
        ConsoleLog(INFO) << "Verify pass!!";
        return true;
    }
    if (status == verifyRefused)
    {
        ConsoleLog(CRITICAL) << "Verify failed!!";
        return false;
    }
    ConsoleLog(CRITICAL) << "Other crash on mctp command to RoT, error code: "
                         << HexText(static_cast<unsigned>(status) & 0xff, 2);
    return false;
}

bool UbbFpgaImageStrategy::Fetch()
{
    ConsoleLog(INFO) << "Fetch AHDR image: [" << activeAhdrPath << "]";
    return LoadAhdr(activeAhdrPath, activeAhdr, AhdrVoice::plain) &&
           CheckAhdrMagic(activeAhdr, AhdrVoice::plain);
}

bool BundleImageStrategy::Fetch()
{
    ConsoleLog(INFO) << "Fetch AHDR image: [" << activeAhdrPath << "]";
    if (!LoadAhdr(activeAhdrPath, activeAhdr, AhdrVoice::plain))
    {
        return false;
    }
    // The RMs learn the bundle version even from a header that turns out
    // bad: the order is the board's.
    WriteBundleVersion(activeAhdr.currentSWVersion);
    return CheckAhdrMagic(activeAhdr, AhdrVoice::plain);
}

bool StrategyFiles(uint32_t componentId, std::string& ahdrFile,
                   std::string& imageFile)
{
    const FwNames* names = FindFwNames(componentId);
    if (names == nullptr || names->stem.empty() || names->id == FwType::SMC ||
        names->id == FwType::SMC_FPGA)
    {
        return false;
    }
    ahdrFile = std::string(names->stem) + ".ahdr";
    imageFile = std::string(names->stem) + ".bin";
    return true;
}

namespace
{

std::shared_ptr<ImageProcessStrategy> makeStrategy(FwType id, uint8_t side,
                                                   const std::string& ahdrFile,
                                                   const std::string& imageFile)
{
    switch (id)
    {
        case FwType::UBB_FPGA:
            return std::make_shared<UbbFpgaImageStrategy>(side, ahdrFile,
                                                          imageFile);
        case FwType::IFWI:
            return std::make_shared<IfwiImageStrategy>(side, ahdrFile,
                                                       imageFile);
        case FwType::Retimer:
        case FwType::Retimer_1:
        case FwType::Retimer_2:
            return std::make_shared<RetimerImageStrategy>(side, ahdrFile,
                                                          imageFile);
        case FwType::VR:
            return std::make_shared<VrImageStrategy>(side, ahdrFile, imageFile);
        case FwType::RM:
            return std::make_shared<RmImageStrategy>(side, ahdrFile, imageFile);
        case FwType::BUNDLE:
            return std::make_shared<BundleImageStrategy>(side, ahdrFile,
                                                         imageFile);
        default:
            return nullptr;
    }
}

} // namespace

std::shared_ptr<ImageProcessStrategy> CreateImageStrategy(
    const SecureBootService& service, uint32_t componentId)
{
    std::string ahdrFile;
    std::string imageFile;
    if (!StrategyFiles(componentId, ahdrFile, imageFile))
    {
        return nullptr;
    }
    std::shared_ptr<ImageProcessStrategy> strategy =
        makeStrategy(static_cast<FwType>(componentId), service.activeSide,
                     ahdrFile, imageFile);
    if (strategy)
    {
        strategy->bootContext = service.criticalSection.get();
    }
    return strategy;
}

} // namespace orvane
