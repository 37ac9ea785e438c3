#include "erot_boot_fixture.hpp"
#include "image_files.hpp"

#include "secure-boot/persist_update.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "secure-boot/service_flags.hpp"
#include "vr-service/oam_vr_updater.hpp"
#include "vr-service/ubb_vr_updater.hpp"

#include <gmock/gmock.h>

namespace orvane::test
{
namespace
{

using ::testing::HasSubstr;

class ServiceRecordTest : public ErotBootTest
{
  protected:
    SecureBootService service{&semaphore, false, SecureBootService::recordOnly};
};

TEST_F(ServiceRecordTest, VrUpdateFlagFiles)
{
    // File texts; "-" for a missing file.
    struct Case
    {
        const char* force;
        const char* enable;
        bool services;
        bool before;
        bool result;
        bool after;
    };
    const Case cases[] = {
        {"1\n", "-", true, false, true, true}, // force wins
        {"1", "-", false, false, true, false}, // even without services
        {"0", "2\n", true, true, true, true},  // "2" changes nothing
        {"", "0", true, true, true, false},
        {"-", "-", true, true, false, false}, // can't tell: off
        {"-", "1", false, false, false, false},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(std::string(c.force) + "|" + c.enable);
        std::filesystem::remove_all(platform::path("/var/lib/orvane"));
        for (auto [file, text] : {std::pair{"force_bundleupdate", c.force},
                                  std::pair{"enable_vrupdate", c.enable}})
        {
            if (std::string(text) != "-")
            {
                WriteBoardFile(std::string("/var/lib/orvane/") + file,
                               Bytes(text, text + std::strlen(text)));
            }
        }
        service.oamVrService =
            c.services ? std::make_shared<OamVrUpdater>(nullptr, false)
                       : nullptr;
        service.ubbVrService =
            c.services ? std::make_shared<UbbVrUpdater>(nullptr, false)
                       : nullptr;
        if (c.services)
        {
            service.oamVrService->enableVrUpdate = c.before;
            service.ubbVrService->enableVrUpdate = c.before;
        }
        const std::string out =
            console([&] { EXPECT_EQ(readVrUpdateEnable(service), c.result); });
        if (c.services)
        {
            EXPECT_EQ(service.oamVrService->enableVrUpdate, c.after);
            EXPECT_EQ(service.ubbVrService->enableVrUpdate, c.after);
        }
        EXPECT_EQ(out.empty(), c.result);
    }
}

TEST_F(ServiceRecordTest, ManualRetimerUpdateFlagIsExactlyOneOnItsFirstLine)
{
    const std::string file =
        "/var/lib/orvane/retimer_images/enable_manual_retimer_update";
    WriteBoardFile(file, {'1', ' ', '\n'});
    EXPECT_FALSE(readManualRetimerUpdate());
    writeManualRetimerUpdate(true);
    EXPECT_TRUE(readManualRetimerUpdate());
    writeManualRetimerUpdate(false);
    EXPECT_FALSE(readManualRetimerUpdate());
}

// A good read is changed and written back; a refused one changes neither
// the eRoT's record nor the working copy, and the change is lost.
TEST_F(ServiceRecordTest, PersistUpdateWritesBackOnlyAGoodRead)
{
    Bytes record(16);
    record[0] = 0x04;
    record[10] = 0x03;
    device.reply(erot::test::response(0x12, 0, record));
    device.reply(erot::test::response(0x13, 0));
    console([&] {
        UpdatePersist(service, "Retimer", [](erot::SmcPersistRecord& r) {
            r.failoverFlipMask &= ~persist::FAILOVER_RETIMER;
        });
    });
    Bytes changed = record;
    changed[10] = 0x01;
    ASSERT_EQ(device.sent.size(), 2U);
    EXPECT_EQ(device.sent[1].request, erot::test::request(0x13, changed));
    const auto* copy = reinterpret_cast<const uint8_t*>(service.persist.get());
    EXPECT_EQ(Bytes(copy, copy + 16), changed);

    device.reply(erot::test::response(0x12, 0x42));
    EXPECT_THAT(console([&] {
                    UpdatePersist(service, "IFWI",
                                  [](auto& r) { r.flags = 0; });
                }),
                HasSubstr("IFWI Get_SMC_Persist process error."));
    EXPECT_EQ(device.sent.size(), 3U) << "nothing written back";
    EXPECT_EQ(Bytes(copy, copy + 16), changed);
}

} // namespace
} // namespace orvane::test
