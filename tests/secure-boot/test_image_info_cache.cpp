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
    // An AHDR with this version and its four-byte image, on side A or B.
    void writePair(const char* side, const char* stem, uint32_t version)
    {
        AhdrHeader ahdr = sampleAhdr();
        ahdr.currentSWVersion = version;
        ahdr.verifiablePayloadSize = 4;
        const std::string dir = std::string("/var/lib/images/") + side + "/";
        std::filesystem::create_directories(fake.files.resolve(dir));
        std::ofstream(fake.files.resolve(dir + stem + ".ahdr"))
            .write(reinterpret_cast<const char*>(&ahdr), sizeof(ahdr));
        std::ofstream(fake.files.resolve(dir + stem + ".bin")) << "RMRM";
    }
    void remove(const std::string& path)
    {
        std::filesystem::remove(fake.files.resolve(path));
    }

    SecureBootService service{&semaphore, false};
};

TEST_F(ImageCacheTest, CachePublishesTheSideThatTheRecordNames)
{
    writePair("A", "rm", 0x11);
    writePair("B", "rm", 0x22);
    service.smcInfo.active.currentSWVersion = 0x33;
    service.smcInfo.inactive.currentSWVersion = 0x44;
    auto cache = [&](FwType id, uint32_t side) {
        service.bprTable->sides[id] = side;
        const uint32_t raw = static_cast<uint32_t>(id);
        return console([&] {
            CacheImageInfo(service, CreateImageStrategy(service, raw),
                           id == FwType::RM ? "RM" : "SMC", raw);
        });
    };
    struct Case
    {
        FwType id;
        uint32_t side;
        const char* before; // a file removed first, or empty
        const char* line;
        const char* suffix;
        const char* version;
    };
    const Case cases[] = {
        {FwType::SMC, 0, "", "] Cache SMC Activate AHDR\n", "SMC",
         "0x00000033"},
        {FwType::SMC, 1, "", "] Cache SMC Inactivate AHDR\n", "SMC",
         "0x00000044"},
        {FwType::RM, 0, "", "] Cache RM Activate AHDR\n", "RMC", "0x00000011"},
        {FwType::RM, 1, "", "] Cache RM Inactivate AHDR\n", "RMC",
         "0x00000022"},
        // What can't be read leaves the published values as they were.
        {FwType::RM, 1, "/var/lib/images/B/rm.bin",
         "] Failed to initialize Inactive Side\n", "RMC", "0x00000022"},
        {FwType::RM, 0, "/var/lib/images/A/rm.ahdr",
         "] Fetch RM image failed!!!\n", "RMC", "0x00000022"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.line);
        if (*c.before != '\0')
        {
            remove(c.before);
        }
        EXPECT_THAT(cache(c.id, c.side), HasSubstr(c.line));
        EXPECT_EQ(imageInfo(c.suffix, "Version"), c.version);
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
    auto state = [&](const std::string& name, const std::string& what,
                     const std::string& value, const std::string& text) {
        return id + "StateOEM|" + name + "," + what + "," + value + "," + text +
               "|" + name + (what == "SVN" ? " svn " : " key ") + text;
    };
    const std::string key = "0x00c0ffee";
    const std::string svn = "0x0000002a";
    EXPECT_THAT(
        revocationEvents(),
        ElementsAre(state("EROT", "KeyID", key, "not requested"),
                    state("EROT", "SVN", svn, "requested but not completed"),
                    id + "FailedOEM|SMC,KeyID," + key +
                        "|SMC key revocation failed",
                    state("SMC", "KeyID", key, "requested but not completed"),
                    state("SMC", "SVN", svn, "completed"),
                    id + "SuccessOEM|APCFG,KeyID," + key +
                        "|APCFG key revocation success",
                    state("APCFG", "KeyID", key, "completed"),
                    state("APCFG", "SVN", svn, "not requested"),
                    state("BUNDLE", "KeyID", key, "not requested"),
                    state("BUNDLE", "SVN", svn, "not requested")));
    EXPECT_THAT(out, HasSubstr("] Fetch BUNDLE image failed!!!\n"));
    EXPECT_THAT(out, HasSubstr("] Unknown key Status:7\n"));
    EXPECT_THAT(out, HasSubstr("] Unknown SVN Status:9\n"));
    EXPECT_EQ(imageInfo("EROT", "Version"), "0x01020304");
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
