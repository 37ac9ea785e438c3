// The service start's retries, manifest and component info, and the boot
// success report with its wait for the log partition.

#include "erot_boot_fixture.hpp"
#include "image_files.hpp"

#include "secure-boot/bkc_manifest.hpp"
#include "secure-boot/boot_success.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "secure-boot/service_start.hpp"

#include <cstring>
#include <optional>

#include <gmock/gmock.h>

namespace orvane::test
{
namespace
{

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using namespace std::chrono_literals;

constexpr const char* retryEvent = "ResourceEvent.1.2.1.ResourceRetryFailOEM";

class ServiceStartTest : public ErotBootTest
{
  protected:
    // True when the call ended in the halt; its console goes to `log`.
    template <typename Call>
    bool halts(Call call)
    {
        bool halted = false;
        log = console([&] {
            try
            {
                call();
            }
            catch (const Halted&)
            {
                halted = true;
            }
        });
        return halted;
    }

    SecureBootService service{&semaphore, false, SecureBootService::recordOnly};
    std::string log;
};

TEST_F(ServiceStartTest, RefusedCommandIsRetriedTwiceThenHalts)
{
    const RetryTexts texts{"ErotBPRRead", "BPR failed. Retry ",
                           "BPR failed after retry 3 times."};
    auto retry = [](int n) {
        return retryEvent +
               std::string("|[Secure-Boot] eRoT API,ErotBPRRead,") +
               std::to_string(n) + " times.|BPR failed. Retry " +
               std::to_string(n);
    };
    struct Case
    {
        std::vector<int> statuses;
        std::vector<std::string> events;
        bool halted;
    };
    const Case cases[] = {
        {{0}, {}, false},
        {{0x21, 0}, {retry(1)}, false},
        {{1, 1, 0}, {retry(1), retry(2)}, false},
        {{1, 1, 1},
         {retry(1), retry(2),
          retryEvent + std::string("|[Secure-Boot] eRoT API,ErotBPRRead,3 "
                                   "times.|BPR failed after retry 3 times."),
          "BootFailure|RoT|System halt and enable FW recovery mode."},
         true},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.statuses.size());
        fake.zellib.clear();
        size_t calls = 0;
        EXPECT_EQ(halts([&] {
                      RetryErotCommand(context, texts,
                                       [&] { return c.statuses[calls++]; });
                  }),
                  c.halted);
        EXPECT_EQ(calls, c.statuses.size());
        EXPECT_THAT(events(), ElementsAreArray(c.events));
    }
}

TEST_F(ServiceStartTest, ManifestFilesByKeyAndKeepsVersionTexts)
{
    auto entry = [](uint16_t id, uint32_t version) {
        return Bytes{static_cast<uint8_t>(id),
                     static_cast<uint8_t>(id >> 8),
                     static_cast<uint8_t>(version),
                     static_cast<uint8_t>(version >> 8),
                     static_cast<uint8_t>(version >> 16),
                     static_cast<uint8_t>(version >> 24)};
    };
    // A refusal leaves every record at 0, and the boot goes on.
    ClearBkcManifest(service);
    device.reply(erot::test::response(0x07, 0x05));
    EXPECT_FALSE(halts([&] { EXPECT_FALSE(readBkcManifest(service)); }));
    EXPECT_EQ(service.bkcManifest.size(), 12U);
    for (const auto& [key, record] : service.bkcManifest)
    {
        EXPECT_EQ(uint32_t{record.version}, 0U) << key;
    }
    EXPECT_THAT(events(), ElementsAre(HasSubstr("ResourceSelfTestFailed")));

    device.reply(erot::test::response(
        0x07, 0,
        erot::test::join(Bytes{1}, entry(0x0400, 0), entry(0x0800, 0xFFFFFFFF),
                         entry(0x0500, 0x01020304), entry(0x0602, 0x22),
                         entry(0x0601, 0x11), entry(0x0A00, 0x33))));
    halts([&] { EXPECT_TRUE(readBkcManifest(service)); });
    EXPECT_EQ(service.bkcManifest.size(), 12U) << "unknown id skipped";
    EXPECT_EQ(uint32_t{service.bkcManifest["Retimer"].version}, 0x11U)
        << "last wins";
    EXPECT_EQ(uint32_t{service.bkcManifest["RM"].version}, 0xFFFFFFFFU);
    EXPECT_EQ(uint32_t{service.bkcManifest["IFWI"].version}, 0x01020304U);
    EXPECT_THAT(log, HasSubstr("Got 6 entries:"));
    EXPECT_THAT(log, HasSubstr("0x500version 0x1020304"));
    EXPECT_EQ(ManifestVersionText(FwType::UBB_FPGA), "0x00000000");
    EXPECT_EQ(ManifestVersionText(FwType::RM), "0xffffffff");
    EXPECT_EQ(ManifestVersionText(FwType::IFWI), "0x01020304");
}

TEST_F(ServiceStartTest, ComponentInfoHaltsOnlyOnAFailedActiveRecordOfTheFour)
{
    auto info = [](FwType id, uint8_t active, uint8_t status, uint8_t hashed) {
        erot::ComponentInfo record{};
        record.componentId = static_cast<uint16_t>(id);
        record.version = 0x01020304;
        record.svn = 7;
        record.customerId = 0x1234;
        std::strcpy(record.details, "fw");
        std::memset(record.digest, 0xAB, sizeof(record.digest));
        record.active = active;
        record.secureBootStatus = status;
        record.hashValid = hashed;
        return record;
    };
    using Service = SecureBootService;
    struct Case
    {
        erot::ComponentInfo record;
        bool halted;
        const char* line; // in the log, or the halt's
        std::function<void(const Service&)> check;
    };
    const std::array<uint8_t, 48> digest = [] {
        std::array<uint8_t, 48> d{};
        d.fill(0xAB);
        return d;
    }();
    const Case cases[] = {
        {info(FwType::SMC, 1, 1, 0), false, "Fetching SMC active AHDR...",
         [](const Service& s) {
             EXPECT_EQ(s.smcInfo.active.currentSWVersion, 0x01020304U);
             EXPECT_EQ(s.smcInfo.active.securityVersion, 7U);
             EXPECT_EQ(s.smcInfo.active.customerId, 0x1234);
             EXPECT_STREQ(reinterpret_cast<const char*>(
                              s.smcInfo.active.componentDetails),
                          "fw");
             EXPECT_EQ(s.smcInfo.inactive.currentSWVersion, 0U);
         }},
        {info(FwType::SMC_FPGA, 0, 1, 1), false,
         "SMC FPGA Inactive Image hash from RoT: abab",
         [&](const Service& s) {
             EXPECT_EQ(s.bprTable->smcFpgaInactiveHash, digest);
             EXPECT_EQ(s.bprTable->smcFpgaActiveHash, decltype(digest){});
             EXPECT_EQ(s.smcFpgaInfo.inactive.currentSWVersion, 0x01020304U);
         }},
        {info(FwType::SMC_FPGA, 1, 1, 0), false, "Fetching SMC-FPGA active",
         [](const Service& s) {
             EXPECT_EQ(s.bprTable->smcFpgaActiveHash, decltype(digest){});
         }},
        {info(FwType::APCFG, 0, 0, 0), false, "Fetching APCFG inactive AHDR",
         nullptr},
        {info(FwType::RM, 1, 0, 0), false, "",
         [](const Service& s) {
             EXPECT_EQ(uint32_t{s.componentInfoByName.at("RM").version},
                       0x01020304U);
         }},
        {info(FwType::EROT, 1, 0, 0), true,
         "The eRoT secure_boot_status check has failed", nullptr},
        {info(FwType::SMC_FPGA, 1, 0, 1), true,
         "The SMCFPGA secure_boot_status check has failed", nullptr},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.line);
        Service fresh(&semaphore, false, Service::recordOnly);
        const bool halted = halts([&] {
            FileComponentInfo(fresh, {&c.record, 1});
        });
        const std::string& out = log;
        EXPECT_EQ(halted, c.halted);
        EXPECT_THAT(out, HasSubstr(c.line));
        EXPECT_EQ(occurrences(out, "Halt boot and enter FW recovery"),
                  c.halted ? 1U : 0U);
        if (c.check)
        {
            c.check(fresh);
        }
    }
    const erot::ComponentInfo unknown =
        info(static_cast<FwType>(0x0A00), 1, 0, 0);
    EXPECT_EQ(console([&] { FileComponentInfo(service, {&unknown, 1}); }), "");
}

// Sleeps like the fake clock and mounts the log partition once `mountAt`
// has passed.
class MountingClock : public FakeClock
{
  public:
    explicit MountingClock(std::optional<std::chrono::seconds> mountAt) :
        mountAt(mountAt)
    {}
    void sleepFor(std::chrono::nanoseconds duration) override
    {
        FakeClock::sleepFor(duration);
        slept += duration;
        if (mountAt && slept >= *mountAt)
        {
            WriteMounts("log_nv /run/initramfs/log_nv jffs2 rw 0 0\n");
        }
    }
    static void WriteMounts(const std::string& text)
    {
        WriteBoardFile("/proc/mounts", Bytes(text.begin(), text.end()));
    }

  private:
    std::optional<std::chrono::seconds> mountAt;
    std::chrono::nanoseconds slept{0};
};

TEST_F(ServiceStartTest, BootMessageWaitsForTheLogPartitionWithoutLimit)
{
    const std::string base = "proc /proc proc rw 0 0\n";
    const std::string listed =
        base + "dev /run/initramfs/log_nv jffs2 rw 0 0\n";
    const std::string ls = "ls -la /run/initramfs/log_nv > /dev/null 2>&1";
    const std::string success = "BootSuccess|Secure|Skip Secure Boot";
    const std::string failure =
        "BootFailure|Secure|Boot failure - NvCheckFail.";
    struct Case
    {
        const char* name;
        std::optional<std::string> mounts; // none: no mount table
        std::optional<std::chrono::seconds> mountAt;
        bool listed; // ls works
        bool directory;
        std::string event;
        std::string line;
    };
    const Case cases[] = {
        {"mounted", listed, std::nullopt, true, true, success,
         "took 0 seconds."},
        {"late", base, 35s, true, true, success, "took 40 seconds."},
        {"substring", "dev /run/initramfs/log_nv/old ext4 rw 0 0\n",
         std::nullopt, true, true, success, "confirmed accessible."},
        {"no table", std::nullopt, std::nullopt, true, true, failure,
         "Failed to open /proc/mounts"},
        {"unlisted", listed, std::nullopt, false, true, failure,
         "Failed to list contents of /run/initramfs/log_nv"},
        {"missing", listed, std::nullopt, true, false, failure,
         "Cannot access /run/initramfs/log_nv"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        std::filesystem::remove_all(platform::path("/proc"));
        std::filesystem::remove_all(platform::path("/run"));
        if (c.mounts)
        {
            MountingClock::WriteMounts(*c.mounts);
        }
        if (c.directory)
        {
            std::filesystem::create_directories(
                platform::path("/run/initramfs/log_nv"));
        }
        fake.shell.statusFor[ls] = c.listed ? 0 : 1 << 8;
        MountingClock timer(c.mountAt);
        platform::Platform seams = platform::current();
        seams.clock = &timer;
        const platform::Platform before = platform::install(seams);
        fake.zellib.clear();
        const std::string out =
            console([] { ReportBootMessageNow("Skip Secure Boot"); });
        platform::install(before);
        EXPECT_THAT(events(), ElementsAre(c.event));
        EXPECT_THAT(out, HasSubstr(c.line));
        EXPECT_THAT(out, HasSubstr("log_nv first-access took "));
    }
}

TEST_F(ServiceStartTest, PostBootReportFlagsAnSmcFpgaBackupWithoutDigest)
{
    auto inactive = [](FwType id, uint8_t hashValid) {
        erot::ComponentInfo record{};
        record.componentId = static_cast<uint16_t>(id);
        record.hashValid = hashValid;
        return record;
    };
    struct Case
    {
        std::vector<erot::ComponentInfo> records;
        size_t reports;
    };
    const Case cases[] = {
        {{inactive(FwType::SMC_FPGA, 0)}, 1},
        {{inactive(FwType::SMC_FPGA, 1)}, 0},
        {{inactive(FwType::SMC_FPGA, 0), inactive(FwType::SMC_FPGA, 0)}, 2},
        {{inactive(FwType::SMC, 0)}, 1}, // no backup listed at all
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.records.size());
        Bytes entries(c.records.size() * sizeof(erot::ComponentInfo));
        std::memcpy(entries.data(), c.records.data(), entries.size());
        device.reply(erot::test::page(0x0F, 0x02, 0, 4, entries));
        fake.zellib.clear();
        console([&] { postBootReport(service); });
        const auto calls = fake.zellib.calls(ZellibCall::Kind::nvLog);
        ASSERT_EQ(calls.size(), c.reports);
        for (const ZellibCall& call : calls)
        {
            EXPECT_EQ(call.messageId,
                      "ResourceEvent.1.2.1.ResourceEROTNonFatalErrorsOEM");
            EXPECT_EQ(call.arg1 + "," + call.arg2 + "," + call.arg3,
                      "NCAh,00000300,ffffffff");
            EXPECT_THAT(call.message,
                        HasSubstr("EROT Non fatal error occured"));
        }
    }
}

} // namespace
} // namespace orvane::test
