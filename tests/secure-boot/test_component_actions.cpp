// The component actions on faked seams: how many programmings each device
// gets before it counts as failed, the order between the VR and RM
// threads, and the staged UBB FPGA images.

#include "erot_boot_fixture.hpp"
#include "image_files.hpp"

#include "fakes/bus_fixture.hpp"
#include "secure-boot/bkc_manifest.hpp"
#include "secure-boot/bring_up.hpp"
#include "secure-boot/components/ifwi_update.hpp"
#include "secure-boot/components/ubb_fpga_bring_up.hpp"
#include "secure-boot/components/vr_bring_up.hpp"
#include "secure-boot/components/vr_gate.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/secure_boot_service.hpp"

#include <openssl/evp.h>

#include <future>

#include <gmock/gmock.h>

namespace orvane::test
{
namespace
{

using erot::test::response;
using ::testing::Contains;
using ::testing::HasSubstr;

// How many runs of the tool that starts with `prefix` there were.
size_t Runs(const FakeShell& shell, const std::string& prefix)
{
    size_t count = 0;
    for (const std::string& command : shell.commands())
    {
        count += command.starts_with(prefix) ? 1 : 0;
    }
    return count;
}

// The devices hold the image once the tool has run `matchAfter` times.
class ProgrammableRetimer : public platform::RetimerLib
{
  public:
    explicit ProgrammableRetimer(const FakeShell& shell) : shell(shell)
    {}
    int ensureRetimerDevImage(int, const std::string&) override
    {
        return Runs(shell, "/usr/sbin/retimer-update-secureboot.sh") >=
                       matchAfter
                   ? 0
                   : 1;
    }
    size_t matchAfter = 0;

  private:
    const FakeShell& shell;
};

class ComponentTest : public ErotBootTest
{
  protected:
    ComponentTest() : retimer(fake.shell)
    {
        platform::Platform seams = platform::current();
        seams.retimer = &retimer;
        previous = platform::install(seams);
        std::lock_guard<std::mutex> hold(vrGate().mutex);
        vrGate().vrFinished = false;
    }
    ~ComponentTest() override
    {
        platform::install(previous);
    }

    // The strategy of `id` with a good image pair on side A, whose
    // verification the eRoT will accept.
    std::shared_ptr<ImageProcessStrategy> verified(FwType id, Bytes image)
    {
        auto s = CreateImageStrategy(service, static_cast<uint32_t>(id));
        WriteBoardFile(s->activeAhdrPath,
                       AhdrBytes(SampleAhdr(static_cast<uint16_t>(id), 1)));
        WriteBoardFile(s->activeImagePath, image);
        device.reply(response(0x02, 0));
        return s;
    }

    // The console and every text that went to the logging library.
    std::string told(const std::string& out) const
    {
        std::string all = out;
        for (const ZellibCall& call : fake.zellib.calls())
        {
            all += call.message;
        }
        return all;
    }

    ProgrammableRetimer retimer;
    SecureBootService service{&semaphore, false, SecureBootService::recordOnly};

  private:
    platform::Platform previous;
};

TEST_F(ComponentTest, RetimerIsReprogrammedAtMostThreeTimes)
{
    const std::string script = "/usr/sbin/retimer-update-secureboot.sh "
                               "/var/lib/images/A/retimer-1.bin 0x01020304 "
                               "0x66";
    struct Case
    {
        size_t matchAfter;
        bool booted;
        const char* line;
    };
    const Case cases[] = {
        {0, true, "Verify Retimer_1 device successfully."},
        {2, true, "Retimer 1 Process compare the active image and device"},
        {9, false, "Retimer Hash can't match after 3 times Re-Program!"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.line);
        fake.shell.statusFor[script] = 1; // not an error by itself
        retimer.matchAfter = c.matchAfter;
        const size_t before = Runs(fake.shell, script);
        auto s = verified(FwType::Retimer_1, {9, 9});
        const std::string out = console([&] {
            EXPECT_EQ(
                bringUpComponent(service, s, "Retimer_1", FwType::Retimer_1),
                c.booted);
        });
        EXPECT_THAT(told(out), HasSubstr(c.line));
        const size_t programmed = Runs(fake.shell, script) - before;
        EXPECT_EQ(programmed, c.booted ? c.matchAfter : 3U);
        EXPECT_EQ(service.retimer1Strategy, s);
        EXPECT_EQ(occurrences(out, "Retimer update script failed with return "
                                   "code: 1"),
                  programmed);
    }
}

TEST_F(ComponentTest, IfwiIsProgrammedUntilTheOamsAgree)
{
    fake.gpio.addLines({"SMC_UBB_FPGA_SPI_SEL"});
    WriteBoardFile("/sys/devices/platform/ahb/1e631000.spi/mtd/mtd5/name",
                   {'u', 'b', 'b', '-', 's', 'p', 'i', '2', ':', '0'});
    fake.i2c.addDevice(3, 0x56);
    fake.i2c.setRegister(3, 0x56, 0x63, 0x0C);
    // What register 0x42 reports after each read: the presence is a pass.
    std::vector<uint8_t> differences;
    size_t arms = 0;
    fake.i2c.setObserver([&](const I2cOp& op) {
        if (op.kind == I2cOp::Kind::smbusWriteByteData && op.command == 0x42 &&
            ++arms % 2 == 0)
        {
            const size_t read = arms / 2 - 1;
            fake.i2c.setRegister(3, 0x56, 0x42,
                                 read < differences.size() ? differences[read]
                                                           : 0x0C);
        }
    });
    const std::string tool =
        "/usr/sbin/ifwi-update.sh /var/lib/images/A/ifwi.bin 0x01020304";
    const Bytes image{1, 2, 3};

    struct Case
    {
        std::vector<uint8_t> differences;
        bool dumpMatches;
        bool toolFails;
        bool updateOnReboot;
        bool done;
        size_t flashes;
        size_t reads;
        const char* line;
    };
    const Case cases[] = {
        {{0x0C}, true, false, false, true, 0, 1, "All good MISO"},
        {{0x0D, 0x0D, 0x0C},
         true,
         false,
         false,
         true,
         2,
         3,
         "Retry updating IFWI, attempt #2"},
        {{0x0C},
         false,
         false,
         true,
         true,
         1,
         1,
         "Update IFWI FW (updateOnReboot=true)"},
        {{0x0C},
         false,
         true,
         false,
         false,
         3,
         1,
         "The IFWI contents not matching after retries."},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.line);
        differences = c.differences;
        arms = 0;
        fake.zellib.clear();
        fake.shell.statusFor[tool] = c.toolFails ? 1 : 0;
        WriteBoardFile("/tmp/ifwi_dump", c.dumpMatches ? image : Bytes{7, 7});
        const size_t before = Runs(fake.shell, tool);
        IfwiImageStrategy s(0, "ifwi.ahdr", "ifwi.bin");
        s.activeAhdr = SampleAhdr(0x0500, 1);
        s.activeHash = Sha384Of(image);
        const std::string out = console(
            [&] { EXPECT_EQ(updateIfwi(s, 0, c.updateOnReboot), c.done); });
        EXPECT_THAT(out, HasSubstr(c.line));
        EXPECT_EQ(Runs(fake.shell, tool) - before, c.flashes);
        EXPECT_EQ(arms / 2, c.reads);
        const bool repaired = c.flashes > 0 && !c.updateOnReboot;
        const auto calls = fake.zellib.calls();
        EXPECT_EQ(std::any_of(calls.begin(), calls.end(),
                              [](const ZellibCall& call) {
                                  return call.messageId == "BundleCheckFailure";
                              }),
                  repaired);
        EXPECT_EQ(
            occurrences(out, "In The ImageProcessStrategy::UpdateIFWI()."),
            c.flashes);
    }
    EXPECT_THAT(events(),
                Contains("FirmwareUpdateFailed|IFWI|The IFWI is update error "
                         "the 3 time."));
}

// The RM service, answering with the image's digest once the RM tool has
// run `matchAfter` times.
class RmTest : public ComponentTest
{
  protected:
    RmTest()
    {
        const Bytes image{'r', 'm'};
        uint8_t digest[32];
        EVP_Digest(image.data(), image.size(), digest, nullptr, EVP_sha256(),
                   nullptr);
        const std::string object = "/xyz/openbmc_project/rm/Ctrl";
        const std::string interface = "xyz.openbmc_project.rmIntf";
        rm.addMethod(object, interface, "UpdateAllFuncAreaAddr", "", "b",
                     [](sdbus::MethodCall&, sdbus::MethodReply& reply) {
                         reply << true;
                         return 0;
                     });
        rm.addMethod(
            object, interface, "GetSHA256HASH", "u", "bay",
            [this, digest](sdbus::MethodCall&, sdbus::MethodReply& reply) {
                std::vector<uint8_t> held(digest, digest + 32);
                held[0] ^=
                    Runs(fake.shell, "/usr/bin/zel-rm") < matchAfter ? 1 : 0;
                reply << true << held;
                return 0;
            });
        rm.start();
    }

    std::shared_ptr<ImageProcessStrategy> rmImage()
    {
        return verified(FwType::RM, {'r', 'm'});
    }

    PrivateBus bus;
    BusResponder rm{"xyz.openbmc_project.rm"};
    std::atomic<size_t> matchAfter{0};
};

TEST_F(RmTest, RmIsReprogrammedAtMostThreeTimes)
{
    {
        std::lock_guard<std::mutex> hold(vrGate().mutex);
        vrGate().vrFinished = true;
    }
    struct Case
    {
        size_t matchAfter;
        bool updateOnReboot;
        bool booted;
        const char* line;
    };
    const Case cases[] = {
        {0, false, true, "Verify RM SHA256 success, skip update RM."},
        {1, true, true, "Update RM (updateOnReboot=true)"},
        {9, false, false, "RM Hash can't match after 3 times Re-Program!"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.line);
        matchAfter = c.matchAfter;
        service.updateOnReboot = c.updateOnReboot;
        const size_t before = Runs(fake.shell, "/usr/bin/zel-rm");
        auto s = rmImage();
        const std::string out = console([&] {
            EXPECT_EQ(bringUpComponent(service, s, "RM", FwType::RM), c.booted);
        });
        EXPECT_THAT(out, HasSubstr(c.line));
        EXPECT_EQ(Runs(fake.shell, "/usr/bin/zel-rm") - before,
                  c.booted ? c.matchAfter : 3U);
    }
    EXPECT_THAT(
        fake.shell.commands(),
        Contains("/usr/bin/zel-rm /var/lib/images/A/rm.bin 0x01020304"));
}

// RM waits for VR without a limit: a VR update whose power step failed
// leaves it waiting, and only a VR that finishes lets it go.
TEST_F(RmTest, RmWaitsUntilTheVrUpdateFinishes)
{
    auto s = rmImage();
    WriteBoardFile("/var/lib/orvane/enable_vrupdate", {'1'});
    console([&] {
        auto rmThread = std::async(std::launch::async, [&] {
            return bringUpComponent(service, s, "RM", FwType::RM);
        });
        EXPECT_EQ(rmThread.wait_for(std::chrono::milliseconds(300)),
                  std::future_status::timeout);
        // No power state: the regulators can't be powered for the update.
        EXPECT_FALSE(bringUpComponent(service, nullptr, "VR", FwType::VR));
        EXPECT_EQ(rmThread.wait_for(std::chrono::milliseconds(300)),
                  std::future_status::timeout);
        EXPECT_EQ(rm.calls("GetSHA256HASH"), 0);

        // Without the enable file the VR update is off and done at once.
        std::filesystem::remove(
            platform::path("/var/lib/orvane/enable_vrupdate"));
        EXPECT_TRUE(BringUpVr(service));
        ASSERT_EQ(rmThread.wait_for(std::chrono::seconds(20)),
                  std::future_status::ready);
        EXPECT_TRUE(rmThread.get());
    });
    EXPECT_EQ(rm.calls("GetSHA256HASH"), 8);
}

TEST_F(ComponentTest, StagedUbbFpgaImagesAreProgrammedAFirst)
{
    // The version is the manifest's, as the service start left it.
    const std::string version = ManifestVersionText(FwType::UBB_FPGA);
    const std::string a = "/var/lib/images/A/ubb-fpga.bin";
    const std::string b = "/var/lib/images/B/ubb-fpga.bin";
    const std::string toolA =
                          "/usr/sbin/ubb-fpga-update.sh " + a + " A " + version,
                      toolB =
                          "/usr/sbin/ubb-fpga-update.sh " + b + " B " + version;
    for (bool bFails : {false, true})
    {
        SCOPED_TRACE(bFails);
        WriteBoardFile(a, {1});
        WriteBoardFile(b, {2});
        fake.shell.statusFor[toolB] = bFails ? 256 : 0;
        const size_t before = fake.shell.commands().size();
        const std::string out =
            console([&] { EXPECT_EQ(runUbbFpgaPostUpdate(), !bFails); });
        const auto commands = fake.shell.commands();
        EXPECT_EQ(
            std::vector<std::string>(commands.begin() + before, commands.end()),
            (std::vector<std::string>{toolA, toolB}));
        EXPECT_FALSE(std::filesystem::exists(platform::path(a)));
        EXPECT_EQ(std::filesystem::exists(platform::path(b)), bFails);
        EXPECT_EQ(occurrences(out, "ubb-fpga update failed with return "
                                   "code: 256"),
                  bFails ? 1U : 0U);
    }
    std::filesystem::remove(platform::path(b));
    const size_t before = fake.shell.commands().size();
    console([&] { EXPECT_TRUE(runUbbFpgaPostUpdate()); });
    EXPECT_EQ(fake.shell.commands().size(), before) << "nothing staged";
}

} // namespace
} // namespace orvane::test
