// What the boot publishes of each component: the side that its boot
// partition record names, and the revocation states after a fresh read.

#include "image_info_fixture.hpp"

#include "secure-boot/cache_image_info.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/refresh_image_info.hpp"
#include "secure-boot/secure_boot_service.hpp"

#include <fstream>

#include <gmock/gmock.h>

namespace orvane::test
{
namespace
{

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class ImageCacheTest : public ImageInfoTest
{
  protected:
    SecureBootService service{&semaphore, false, SecureBootService::recordOnly};
};

TEST_F(ImageCacheTest, CachePublishesTheSideThatTheRecordNames)
{
    // RM's pair on each side, the AHDR's version telling the side.
    for (auto [side, version] : {std::pair{"A", 0x11}, std::pair{"B", 0x22}})
    {
        AhdrHeader ahdr = sampleAhdr();
        ahdr.currentSWVersion = version;
        ahdr.verifiablePayloadSize = 4;
        const auto dir = fake.files.resolve("/var/lib/images/") / side;
        std::filesystem::create_directories(dir);
        std::ofstream(dir / "rm.ahdr")
            .write(reinterpret_cast<const char*>(&ahdr), sizeof(ahdr));
        std::ofstream(dir / "rm.bin") << "RMRM";
    }
    service.smcInfo.active.currentSWVersion = 0x33;
    service.smcInfo.inactive.currentSWVersion = 0x44;
    struct Case
    {
        FwType id;
        uint32_t side;
        const char* removed; // before the call, or empty
        const char* line;
        const char* version;
    };
    // What can't be read leaves the published values as they were.
    const Case cases[] = {
        {FwType::SMC, 0, "", "Cache SMC Activate AHDR", "0x00000033"},
        {FwType::SMC, 1, "", "Cache SMC Inactivate AHDR", "0x00000044"},
        {FwType::RM, 0, "", "Cache RM Activate AHDR", "0x00000011"},
        {FwType::RM, 1, "", "Cache RM Inactivate AHDR", "0x00000022"},
        {FwType::RM, 1, "B/rm.bin", "Failed to initialize Inactive Side",
         "0x00000022"},
        {FwType::RM, 0, "A/rm.ahdr", "Fetch RM image failed!!!", "0x00000022"},
    };
    for (const Case& c : cases)
    {
        if (*c.removed != '\0')
        {
            std::filesystem::remove(fake.files.resolve("/var/lib/images/") /
                                    c.removed);
        }
        service.bprTable->sides[c.id] = c.side;
        const auto id = static_cast<uint32_t>(c.id);
        const std::string name = c.id == FwType::RM ? "RM" : "SMC";
        std::string out = console([&] {
            CacheImageInfo(service, CreateImageStrategy(service, id), name, id);
        });
        EXPECT_THAT(out, HasSubstr("] " + std::string(c.line) + "\n"));
        EXPECT_EQ(imageInfo(c.id == FwType::RM ? "RMC" : "SMC", "Version"),
                  c.version)
            << c.line;
    }
    EXPECT_THAT(console([&] { CacheImageInfo(service, nullptr, "X", 0x0A00); }),
                HasSubstr("] Unknow FW type when cache to the information "
                          "from signature.\n"));
}

// Every active record is stored and published; its key and SVN states
// become events, a revoked key also re-reads the bundle.
TEST_F(ImageCacheTest, RefreshRaisesTheStateOfEveryActiveComponent)
{
    service.erotInfo.active = sampleAhdr();
    service.bkcManifest["ROT"] = {0x0100, 5};
    replyComponentInfo({
        record(0x0100, 1, 0, 1), // EROT
        record(0x0200, 1, 1, 2), // SMC
        record(0x0104, 1, 2, 0), // APCFG
        record(0x0300, 1, 7, 9), // SMC_FPGA: neither status is known
        record(0x0900, 1, 0, 0), // BUNDLE: not cached here
        record(0x0600, 0, 2, 2), // inactive
    });
    const std::string out = console([&] { RefreshImageInfo(service); });

    const std::string id = "ResourceEvent.1.2.1.Revocation";
    auto state = [&](const std::string& name, bool key, const char* text) {
        return id + "StateOEM|" + name +
               (key ? ",KeyID,0x00c0ffee," : ",SVN,0x0000002a,") + text + "|" +
               name + (key ? " key " : " svn ") + text;
    };
    EXPECT_THAT(
        revocationEvents(),
        ElementsAre(
            state("EROT", true, "not requested"),
            state("EROT", false, "requested but not completed"),
            id + "FailedOEM|SMC,KeyID,0x00c0ffee|SMC key revocation failed",
            state("SMC", true, "requested but not completed"),
            state("SMC", false, "completed"),
            id + "SuccessOEM|APCFG,KeyID,0x00c0ffee|APCFG key revocation "
                 "success",
            state("APCFG", true, "completed"),
            state("APCFG", false, "not requested"),
            state("BUNDLE", true, "not requested"),
            state("BUNDLE", false, "not requested")));
    for (const char* line :
         {"] Fetch BUNDLE image failed!!!\n", "] Unknown key Status:7\n",
          "] Unknown SVN Status:9\n"})
    {
        EXPECT_THAT(out, HasSubstr(line));
    }
    EXPECT_EQ(imageInfo("EROT", "BKC_Version"), "0x00000005");
    EXPECT_EQ(imageInfo("EROT", "SVNRevokeStatus"), "0x01");
    std::vector<std::string> stored;
    for (const auto& [name, info] : service.componentInfoByName)
    {
        stored.push_back(name);
    }
    EXPECT_THAT(stored,
                ElementsAre("APCFG", "BUNDLE", "ROT", "SMC-FPGA", "SMC-FW"));
}

} // namespace
} // namespace orvane::test
