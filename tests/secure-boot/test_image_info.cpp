// The secure image information on a private bus: the daemon's D-Bus thread
// serves it for the whole program, the eRoT is scripted.

#include "image_info_fixture.hpp"

#include "secure-boot/publish_image_info.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "secure-boot/secure_boot_status.hpp"

#include <atomic>

#include <gmock/gmock.h>

namespace orvane::test
{
namespace
{

using erot::test::response;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* suffixes[] = {
    "VR",   "Retimer", "Retimer_1", "Retimer_2", "UBB_FPGA", "RMC",
    "IFWI", "EROT",    "SMC_FPGA",  "APCFG",     "SMC",      "BUNDLE"};

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
        for (const char* suffix : suffixes)
        {
            std::vector<std::string> names;
            for (const ImageInfoProperty& property : imageInfoProperties)
            {
                names.push_back(property.name);
            }
            for (const char* extra :
                 {"UpdateOnReboot", "OAM0VRVersion", "OAM7VRVersion",
                  "UBBVRVersion", "VRStatus", "VRFruScanComplete"})
            {
                names.push_back(extra);
            }
            for (const std::string& name : names)
            {
                std::string value;
                console([&] { value = imageInfo(suffix, name); });
                initial[std::string(suffix) + "." + name] = value;
            }
        }
        initialStatus = GetBusProperty(powerStatusPath,
                                       secureBootStatusInterface, "Status");
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
    std::map<std::string, std::string> initial;
    std::string initialStatus;

  private:
    std::unique_ptr<FakePlatform> platform;
    std::unique_ptr<PrivateBus> bus;
    std::thread thread;
};

DaemonBus* const daemonBus = dynamic_cast<DaemonBus*>(
    ::testing::AddGlobalTestEnvironment(new DaemonBus));

TEST(ImageInfoBus, ThirteenInterfacesServeTheirDefaults)
{
    const std::map<std::string, std::string> nine = {
        {"Version", "0x00000000"},      {"SecurityVersion", "0x00000000"},
        {"SigningKeyId", "0x00000000"}, {"CustomerId", "0x0000"},
        {"VariantId", "0x0000"},        {"ComponentDetails", ""},
        {"BKC_Version", "0x00000000"},  {"KeyRevokeStatus", "NaN"},
        {"SVNRevokeStatus", "NaN"}};
    // An empty text is also what a missing property reads: the extras tell
    // the interfaces that carry them from the others.
    const std::map<std::string, std::string> extras = {
        {"EROT.UpdateOnReboot", "False"}, {"VR.OAM0VRVersion", "00.00"},
        {"VR.OAM7VRVersion", "00.00"},    {"VR.UBBVRVersion", "00.00"},
        {"VR.VRStatus", "Unknown"},       {"VR.VRFruScanComplete", "0"}};
    for (const auto& [key, value] : daemonBus->initial)
    {
        const std::string name = key.substr(key.find('.') + 1);
        auto expected = nine.count(name) != 0    ? nine.at(name)
                        : extras.count(key) != 0 ? extras.at(key)
                                                 : "";
        EXPECT_EQ(value, expected) << key;
    }
    EXPECT_EQ(daemonBus->initialStatus, "Unknown");
}

TEST(FormatImageInfo, BytesReadMostSignificantFirstAndMissingReadsNaN)
{
    const AhdrHeader ahdr = sampleAhdr();
    const ImageInfoTexts texts =
        FormatImageInfo(0x0600, ahdr, {0x0600, 0x00020001}, nullptr);
    EXPECT_EQ(texts.version, "0x01020304");
    EXPECT_EQ(texts.securityVersion, "0x0000001a");
    EXPECT_EQ(texts.signingKeyId, "0xdeadbeef");
    EXPECT_EQ(texts.customerId, "0x1234");
    EXPECT_EQ(texts.variantId, "0x000a");
    EXPECT_EQ(texts.componentDetails, "Retimer? fw");
    EXPECT_EQ(texts.bkcVersion, "0x00020001");

    struct Case
    {
        uint32_t bkc;
        std::optional<erot::ComponentInfo> info;
        const char* bkcText;
        const char* key;
        const char* svn;
    };
    const Case cases[] = {
        {0, std::nullopt, "NaN", "NaN", "NaN"},
        {1, record(0x0601, 1, 2, 1), "0x00000001", "NaN", "NaN"},
        {0, record(0x0600, 1, 2, 0x1F), "NaN", "0x02", "0x1f"},
    };
    for (const Case& c : cases)
    {
        const ImageInfoTexts t = FormatImageInfo(0x0600, ahdr, {0x0600, c.bkc},
                                                 c.info ? &*c.info : nullptr);
        EXPECT_EQ(t.bkcVersion, c.bkcText) << c.bkc;
        EXPECT_EQ(t.keyRevokeStatus, c.key);
        EXPECT_EQ(t.svnRevokeStatus, c.svn);
    }
}

TEST_F(ImageInfoTest, PublishSetsTheNineOnTheComponentsInterface)
{
    const erot::ComponentInfo info = record(0x0800, 1, 2, 1);
    std::string out = console([&] {
        PublishImageInfo(0x0800, sampleAhdr(), {0x0800, 7}, &info);
    });
    EXPECT_THAT(out, HasSubstr("] currentSWVersion: 0x01020304\n"));
    EXPECT_THAT(out, HasSubstr("] SVNRevokeStatus: 0x01\n"));
    std::vector<std::string> published;
    for (const ImageInfoProperty& property : imageInfoProperties)
    {
        published.push_back(imageInfo("RMC", property.name));
    }
    EXPECT_THAT(published, ElementsAre("0x01020304", "0x0000001a", "0xdeadbeef",
                                       "0x1234", "0x000a", "Retimer? fw",
                                       "0x00000007", "0x02", "0x01"));

    out = console([&] {
        PublishImageInfo(0x0A00, AhdrHeader{}, {0x0A00, 0}, nullptr);
    });
    EXPECT_THAT(out, HasSubstr("[ERROR \"publish_image_info.cpp\":"));
    EXPECT_THAT(out, HasSubstr("] Unknown Firmware type. Cannot cache the "
                               "information from signature.\n"));
    EXPECT_EQ(imageInfo("RMC", "Version"), "0x01020304");
}

// A dead link is the method's result, not a failed call, and halts nothing.
TEST_F(ImageInfoTest, AutoArbMethodsAnswerWithTheResult)
{
    device.fail(-EIO);
    std::vector<sdbus::Variant> answer = getAutoArb();
    ASSERT_EQ(answer.size(), 2U);
    EXPECT_EQ(answer[0].get<int32_t>(), -EIO);
    EXPECT_FALSE(answer[1].get<bool>());
    EXPECT_THAT(events(), ElementsAre(HasSubstr(
                              "|Fail to run ErotGetAutoARBCommit. Return "
                              "Code: -5")));

    device.reply(response(0x15, 0, {1}));
    answer = getAutoArb();
    EXPECT_EQ(answer[0].get<int32_t>(), 0);
    EXPECT_TRUE(answer[1].get<bool>());

    device.reply(response(0x16, 0));
    int result = -1;
    std::string out = console([&] {
        proxy->callMethod("SetAutoARBCommit")
            .onInterface(erotInterface)
            .withArguments(true)
            .storeResultsTo(result);
    });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(device.sent.back().request, erot::test::request(0x16, {1}));
    EXPECT_THAT(out, HasSubstr("] Set Auto ARB Commit Successfully - "
                               "AutoARBCommit:1\n"));
}

// A refused commit reads nothing more; a good one reports the SVN result of
// every active component that has one.
TEST_F(ImageInfoTest, CommitReportsTheSvnRevocationsOnlyWhenItWorked)
{
    device.reply(response(0x0D, 0x42));
    EXPECT_EQ(call("ARBCommit"), 0x42);
    EXPECT_EQ(device.sent.size(), 1U);
    EXPECT_THAT(revocationEvents(), IsEmpty());

    device.reply(response(0x0D, 0));
    replyComponentInfo({record(0x0600, 1, 0, 2), record(0x0700, 1, 0, 1),
                        record(0x0800, 1, 0, 0), record(0x0500, 0, 0, 2),
                        record(0x0A00, 1, 0, 2), record(0x0100, 1, 0, 7)});
    EXPECT_EQ(call("ARBCommit"), 0);
    const std::string prefix = "ResourceEvent.1.2.1.Revocation";
    EXPECT_THAT(revocationEvents(),
                ElementsAre(prefix + "SuccessOEM|Retimer,SVN,0x0000002a|"
                                     "Retimer SVN Revocation success",
                            prefix + "FailedOEM|VR,SVN,0x0000002a|VR SVN "
                                     "Revocation failed"));
}

// The halt of the report runs beside the event loop: the reply comes, the
// Boot Critical Section is released, "ManualRecovery" is published, and the
// bus goes on answering.
TEST_F(ImageInfoTest, HaltAfterACommitLeavesTheBusServing)
{
    // The halt's endless sleep stays asleep; the object outlives the test.
    struct AsleepAfterHalt : FakeClock
    {
        void sleepFor(std::chrono::nanoseconds duration) override
        {
            if (duration == 10s)
            {
                halted = true;
                std::this_thread::sleep_for(std::chrono::hours(24 * 365));
            }
            FakeClock::sleepFor(duration);
        }
        std::atomic<bool> halted{false};
    };
    static AsleepAfterHalt asleep;
    platform::Platform seams = platform::current();
    seams.clock = &asleep;
    platform::Platform before = platform::install(seams);

    SecureBootService service(&semaphore, false);
    AttachImageInfoService(&service);
    device.reply(response(0x0D, 0));
    device.reply(response(0x0F, 0x42));
    std::string out = console([&] { EXPECT_EQ(call("ARBCommit"), 0); });
    ASSERT_TRUE(eventually([] {
        return GetBusProperty(powerStatusPath, secureBootStatusInterface,
                              "Status") == "ManualRecovery";
    }));
    ASSERT_TRUE(eventually([] { return asleep.halted.load(); }));
    AttachImageInfoService(nullptr);
    platform::install(before);

    EXPECT_THAT(out, HasSubstr("] Get_Component_Info fail.\n"));
    EXPECT_EQ(sem_trywait(&semaphore), 0);
    EXPECT_THAT(
        events(),
        ::testing::Contains(
            "BootFailure|RoT|System halt and enable FW recovery mode."));
    device.reply(response(0x15, 0, {0}));
    EXPECT_EQ(getAutoArb().at(0).get<int32_t>(), 0);
}

} // namespace
} // namespace orvane::test
