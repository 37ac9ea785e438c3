#include "erot_boot_fixture.hpp"
#include "image_files.hpp"

#include "secure-boot/persist_update.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "secure-boot/service_flags.hpp"
#include "vr-service/vr_updater.hpp"

#include <optional>

#include <gmock/gmock.h>

namespace orvane::test
{
namespace
{

using erot::test::Bytes;
using ::testing::HasSubstr;

class ServiceRecordTest : public ErotBootTest
{
  protected:
    SecureBootService service{&semaphore, false};
};

std::optional<std::string> none = std::nullopt;

TEST_F(ServiceRecordTest, VrUpdateFlagFiles)
{
    struct Case
    {
        const char* name;
        std::optional<std::string> force;
        std::optional<std::string> enable;
        bool services;
        bool before;
        bool result;
        bool after;
        const char* line;
    };
    const Case cases[] = {
        {"force wins without enable file", "1\n", none, true, false, true, true,
         nullptr},
        {"force even without services", "1", none, false, false, true, false,
         nullptr},
        {"2 leaves it on", "0", "2\n", true, true, true, true, nullptr},
        {"2 leaves it off", none, "2", true, false, true, false, nullptr},
        {"1 turns it on", none, "1", true, false, true, true, nullptr},
        {"0 turns it off", "", "0", true, true, true, false, nullptr},
        {"empty file changes nothing", none, "", true, true, true, true,
         nullptr},
        {"no enable file turns it off", none, none, true, true, false, false,
         "Open the file enable_vrupdate failed"},
        {"no services", none, "1", false, false, false, false,
         "OAM/VR VR service initialization failed"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        std::filesystem::remove_all(platform::path("/var/lib/orvane"));
        auto put = [](const char* file,
                      const std::optional<std::string>& text) {
            if (text)
            {
                WriteBoardFile(std::string("/var/lib/orvane/") + file,
                               Bytes(text->begin(), text->end()));
            }
        };
        put("force_bundleupdate", c.force);
        put("enable_vrupdate", c.enable);
        service.oamVrService =
            c.services ? std::make_shared<VrUpdater>() : nullptr;
        service.ubbVrService =
            c.services ? std::make_shared<VrUpdater>() : nullptr;
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
        if (c.line != nullptr)
        {
            EXPECT_THAT(out, HasSubstr(c.line));
        }
    }
}

TEST_F(ServiceRecordTest, ManualRetimerUpdateFlagIsExactlyOneOnItsFirstLine)
{
    const std::string file =
        "/var/lib/orvane/retimer_images/enable_manual_retimer_update";
    EXPECT_FALSE(readManualRetimerUpdate()) << "no file";
    WriteBoardFile(file, {});
    for (bool enable : {true, false, true})
    {
        writeManualRetimerUpdate(enable);
        EXPECT_EQ(readManualRetimerUpdate(), enable);
    }
    std::ifstream written(platform::path(file));
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(written), {}), "1\n");
    for (const char* text : {"1 \n", "11\n", " 1", "0\n1\n"})
    {
        WriteBoardFile(file, Bytes(text, text + std::strlen(text)));
        EXPECT_FALSE(readManualRetimerUpdate()) << text;
    }
}

// A good read is changed and written back; a refused one changes neither
// the eRoT's record nor the working copy, and the change is lost.
TEST_F(ServiceRecordTest, PersistUpdateWritesBackOnlyAGoodRead)
{
    Bytes record(16);
    record[0] = 0x04;
    record[10] = 0x03;
    const auto clearRetimer = [](erot::SmcPersistRecord& r) {
        r.failoverFlipMask &= ~persist::FAILOVER_RETIMER;
    };
    device.reply(erot::test::response(0x12, 0, record));
    device.reply(erot::test::response(0x13, 0));
    console([&] { UpdatePersist(service, "Retimer", clearRetimer); });
    ASSERT_EQ(device.sent.size(), 2U);
    Bytes changed = record;
    changed[10] = 0x01;
    EXPECT_EQ(device.sent[1].request, erot::test::request(0x13, changed));
    const auto* copy = reinterpret_cast<const uint8_t*>(service.persist.get());
    EXPECT_EQ(Bytes(copy, copy + 16), changed);

    device.sent.clear();
    device.reply(erot::test::response(0x12, 0x42));
    const std::string out = console(
        [&] { UpdatePersist(service, "IFWI", [](auto& r) { r.flags = 0; }); });
    EXPECT_EQ(device.sent.size(), 1U) << "nothing written back";
    EXPECT_THAT(out, HasSubstr("IFWI Get_SMC_Persist process error."));
    EXPECT_EQ(Bytes(copy, copy + 16), changed);
}

} // namespace
} // namespace orvane::test
