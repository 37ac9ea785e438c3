// The secure image information on a private bus: the daemon's D-Bus thread
// serves it for the whole program, the eRoT is scripted.

#include "image_info_fixture.hpp"

#include "secure-boot/publish_image_info.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "secure-boot/secure_boot_status.hpp"

#include <atomic>
#include <optional>

#include <gmock/gmock.h>

namespace orvane::test
{
namespace
{

using erot::test::response;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Values = std::map<std::string, std::string>;

// Every property of an interface, as texts.
Values getAll(const std::string& interface)
{
    std::map<std::string, sdbus::Variant> all;
    sdbus::createProxy(orvaneBusName, powerStatusPath)
        ->callMethod("GetAll")
        .onInterface("org.freedesktop.DBus.Properties")
        .withArguments(interface)
        .storeResultsTo(all);
    Values texts;
    for (const auto& [name, value] : all)
    {
        texts[name] = value.get<std::string>();
    }
    return texts;
}

// The daemon's service on a private bus, shared by the whole program since
// RunDbusService only returns when the bus goes away. What the interfaces
// held before any test is noted here.
class DaemonBus : public ::testing::Environment
{
  public:
    void SetUp() override
    {
        platform = std::make_unique<FakePlatform>();
        bus = std::make_unique<PrivateBus>();
        console([this] {
            thread = std::thread([this] { RunDbusService(state); });
            ASSERT_TRUE(eventually([] { return DbusReady(); }));
        });
        for (const char* suffix :
             {"VR", "Retimer", "Retimer_1", "Retimer_2", "UBB_FPGA", "RMC",
              "IFWI", "EROT", "SMC_FPGA", "APCFG", "SMC", "BUNDLE"})
        {
            initial[suffix] = getAll(ImageInfoInterface(suffix));
        }
        initial["status"] = getAll(secureBootStatusInterface);
    }

    void TearDown() override
    {
        console([this] {
            bus.reset();
            thread.join();
        });
        platform.reset();
    }

    OrvaneSvcState state;
    std::map<std::string, Values> initial;

  private:
    std::unique_ptr<FakePlatform> platform;
    std::unique_ptr<PrivateBus> bus;
    std::thread thread;
};

DaemonBus* const daemonBus = dynamic_cast<DaemonBus*>(
    ::testing::AddGlobalTestEnvironment(new DaemonBus));

TEST(ImageInfoBus, ThirteenInterfacesServeTheirDefaults)
{
    const Values nine = {
        {"Version", "0x00000000"},      {"SecurityVersion", "0x00000000"},
        {"SigningKeyId", "0x00000000"}, {"CustomerId", "0x0000"},
        {"VariantId", "0x0000"},        {"ComponentDetails", ""},
        {"BKC_Version", "0x00000000"},  {"KeyRevokeStatus", "NaN"},
        {"SVNRevokeStatus", "NaN"}};
    std::map<std::string, Values> expected;
    for (const auto& [suffix, values] : daemonBus->initial)
    {
        expected[suffix] = nine;
    }
    expected["EROT"]["UpdateOnReboot"] = "False";
    for (int oam = 0; oam < 8; ++oam)
    {
        expected["VR"]["OAM" + std::to_string(oam) + "VRVersion"] = "00.00";
    }
    expected["VR"].insert({{"UBBVRVersion", "00.00"},
                           {"VRStatus", "Unknown"},
                           {"VRFruScanComplete", "0"}});
    expected["status"] = {{"Status", "Unknown"}};
    EXPECT_EQ(daemonBus->initial, expected);
}

// The AHDR's fields as Version and so on are checked through the bus below.
TEST(FormatImageInfo, MissingOrForeignRecordsReadNaN)
{
    auto texts = [](uint32_t bkc, std::optional<erot::ComponentInfo> info) {
        const ImageInfoTexts t = FormatImageInfo(
            0x0600, sampleAhdr(), {0x0600, bkc}, info ? &*info : nullptr);
        return std::vector{t.bkcVersion, t.keyRevokeStatus, t.svnRevokeStatus};
    };
    EXPECT_THAT(texts(0, std::nullopt), ElementsAre("NaN", "NaN", "NaN"));
    EXPECT_THAT(texts(1, record(0x0601, 1, 2, 1)),
                ElementsAre("0x00000001", "NaN", "NaN"));
    EXPECT_THAT(texts(0x00020001, record(0x0600, 1, 2, 0x1F)),
                ElementsAre("0x00020001", "0x02", "0x1f"));
}

TEST_F(ImageInfoTest, PublishSetsTheNineOnTheComponentsInterface)
{
    const erot::ComponentInfo info = record(0x0800, 1, 2, 1);
    std::string out = console([&] {
        PublishImageInfo(0x0800, sampleAhdr(), {0x0800, 7}, &info);
    });
    EXPECT_THAT(out, HasSubstr("] currentSWVersion: 0x01020304\n"));
    Values rm = getAll(ImageInfoInterface("RMC"));
    EXPECT_EQ(rm, (Values{{"Version", "0x01020304"},
                          {"SecurityVersion", "0x0000001a"},
                          {"SigningKeyId", "0xdeadbeef"},
                          {"CustomerId", "0x1234"},
                          {"VariantId", "0x000a"},
                          {"ComponentDetails", "Retimer? fw"},
                          {"BKC_Version", "0x00000007"},
                          {"KeyRevokeStatus", "0x02"},
                          {"SVNRevokeStatus", "0x01"}}));

    out = console([&] {
        PublishImageInfo(0x0A00, AhdrHeader{}, {0x0A00, 0}, nullptr);
    });
    EXPECT_THAT(out, HasSubstr("] Unknown Firmware type. Cannot cache the "
                               "information from signature.\n"));
    EXPECT_EQ(getAll(ImageInfoInterface("RMC")), rm);
}

// A dead link is the method's result, not a failed call, and halts nothing.
TEST_F(ImageInfoTest, AutoArbMethodsAnswerWithTheResult)
{
    using Answer = std::vector<sdbus::Variant>;
    device.fail(-EIO);
    device.reply(response(0x15, 0, {1}));
    device.reply(response(0x16, 0));
    for (int expected : {-EIO, 0})
    {
        Answer answer = call<Answer>("GetAutoARBCommit");
        ASSERT_EQ(answer.size(), 2U);
        EXPECT_EQ(answer[0].get<int32_t>(), expected);
        EXPECT_EQ(answer[1].get<bool>(), expected == 0);
    }
    EXPECT_EQ(call<int>("SetAutoARBCommit", true), 0);
    EXPECT_EQ(device.sent.back().request, erot::test::request(0x16, {1}));
    EXPECT_THAT(events(), ElementsAre(HasSubstr(
                              "|Fail to run ErotGetAutoARBCommit. Return "
                              "Code: -5")));
}

// A refused commit reads nothing more; a good one reports the SVN result of
// every active component that has one.
TEST_F(ImageInfoTest, CommitReportsTheSvnRevocationsOnlyWhenItWorked)
{
    device.reply(response(0x0D, 0x42));
    EXPECT_EQ(call<int>("ARBCommit"), 0x42);
    EXPECT_EQ(device.sent.size(), 1U);

    device.reply(response(0x0D, 0));
    replyComponentInfo({record(0x0600, 1, 0, 2), record(0x0700, 1, 0, 1),
                        record(0x0800, 1, 0, 0), record(0x0500, 0, 0, 2),
                        record(0x0A00, 1, 0, 2), record(0x0100, 1, 0, 7)});
    EXPECT_EQ(call<int>("ARBCommit"), 0);
    const std::string id = "ResourceEvent.1.2.1.Revocation";
    EXPECT_THAT(
        revocationEvents(),
        ElementsAre(id + "SuccessOEM|Retimer,SVN,0x0000002a|Retimer SVN "
                         "Revocation success",
                    id + "FailedOEM|VR,SVN,0x0000002a|VR SVN Revocation "
                         "failed"));
}

// The halt of the report runs beside the event loop: the reply comes, the
// Boot Critical Section is released, "ManualRecovery" is published, and the
// bus goes on answering.
TEST_F(ImageInfoTest, HaltAfterACommitLeavesTheBusServing)
{
    // The halt's endless sleep stays asleep; the clock outlives the test.
    struct AsleepAfterHalt : FakeClock
    {
        void sleepFor(std::chrono::nanoseconds duration) override
        {
            if (duration == 10s)
            {
                halted = true;
                std::this_thread::sleep_for(std::chrono::hours(24 * 365));
            }
        }
        std::atomic<bool> halted{false};
    };
    static AsleepAfterHalt asleep;
    platform::Platform seams = platform::current();
    seams.clock = &asleep;
    platform::Platform before = platform::install(seams);
    SecureBootService service(&semaphore, false, SecureBootService::recordOnly);
    AttachImageInfoService(&service);

    device.reply(response(0x0D, 0));
    device.reply(response(0x0F, 0x42));
    device.reply(response(0x0D, 0x42));
    std::string out = console([&] {
        EXPECT_EQ(call<int>("ARBCommit"), 0);
        ASSERT_TRUE(eventually([] { return asleep.halted.load(); }));
    });
    AttachImageInfoService(nullptr);
    platform::install(before);

    EXPECT_THAT(out, HasSubstr("] Get_Component_Info fail.\n"));
    EXPECT_EQ(sem_trywait(&semaphore), 0);
    EXPECT_THAT(events(), ::testing::Contains("BootFailure|RoT|System halt "
                                              "and enable FW recovery mode."));
    EXPECT_EQ(getAll(secureBootStatusInterface).at("Status"), "ManualRecovery");
    EXPECT_EQ(call<int>("ARBCommit"), 0x42);
}

} // namespace
} // namespace orvane::test
