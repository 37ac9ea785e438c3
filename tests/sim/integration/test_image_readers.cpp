// The daemon's device readers on the virtual board: its flashes behind the
// SPI driver, its retimers and its RM service answer from the images that
// the board's eRoT signed, and from what a scenario did to them.

#include "board/board.hpp"
#include "board/board_time.hpp"
#include "board/virtual_board.hpp"
#include "erot/board_erot.hpp"
#include "fakes/bus_fixture.hpp"
#include "fakes/console_capture.hpp"
#include "neighbours/neighbours.hpp"
#include "run/device_contents.hpp"
#include "run/sim_root.hpp"
#include "secure-boot/components/ifwi_update.hpp"
#include "secure-boot/components/rm_update.hpp"
#include "secure-boot/components/ubb_fpga_bring_up.hpp"
#include "secure-boot/hash_file.hpp"
#include "secure-boot/ifwi_reader.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/inactive_side.hpp"
#include "secure-boot/retimer_reader.hpp"
#include "secure-boot/retimer_update.hpp"
#include "secure-boot/rm_hash.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "secure-boot/ubb_fpga_reader.hpp"
#include "server/direct_port.hpp"
#include "virtual/virtual_gpio.hpp"
#include "virtual/virtual_i2c.hpp"
#include "virtual/virtual_machine.hpp"

#include <filesystem>

#include <gmock/gmock.h>

namespace orvane::test
{
namespace
{

using ::testing::HasSubstr;
using ::testing::Not;

// The board stands still: the readers' waits are the fake clock's.
class StillTime : public ubbsim::BoardTime
{
  public:
    ubbsim::SimTime now() const override
    {
        return ubbsim::SimTime(0);
    }
    void sleepUntil(ubbsim::SimTime) const override
    {}
};

// The board of the scenario, warm with standby up and the UBB FPGA loaded
// as when the readers run, its image tree signed by its eRoT under `root`
// and its devices loaded from that; the scenario's RMs report the digest
// of side A's image unless it says otherwise.
std::unique_ptr<ubbsim::Board> loadedBoard(ubbsim::Scenario& scenario,
                                           const std::string& root)
{
    scenario.start = ubbsim::ResetKind::warm;
    ubbsim::prepareRoot(root, scenario);
    auto state = ubbsim::erot::setUpBoardErot(
        scenario.erot, root, ubbsim::erot::generateBoardKeys());
    auto board = ubbsim::makeBoard(scenario, std::make_unique<StillTime>());
    board->loadImages(ubbsim::deviceContents(scenario, state, root));
    for (auto& slot : scenario.oams)
    {
        if (slot.rmDigest == std::array<uint8_t, 32>{})
        {
            slot.rmDigest = ubbsim::erot::rmImageSha256(root, 0);
        }
    }
    return board;
}

// I2C, GPIO, the shell and the retimer library reach the board, the RM
// service answers on a private bus; the rest stays fake.
class ReadersOnBoard
{
  public:
    explicit ReadersOnBoard(ubbsim::Scenario given) :
        scenario(std::move(given)), board(loadedBoard(scenario, root)),
        neighbours(scenario)
    {
        // What the RM tool programs is what the RM service reports.
        neighbours.setRmDigestSource(
            [this](int oam) -> std::optional<std::array<uint8_t, 32>> {
                auto image = board->rmImage(oam);
                if (!image)
                {
                    return std::nullopt;
                }
                return ubbsim::erot::sha256Of(*image);
            });
        neighbours.start();
        platform::Platform seams = platform::current();
        seams.i2c = &i2c;
        seams.gpio = &gpio;
        seams.shell = &shell;
        seams.retimer = &retimer;
        previous = platform::install(seams);
    }
    ~ReadersOnBoard()
    {
        platform::install(previous);
    }

    Sha384 digestOf(const std::string& boardPath)
    {
        Sha384 digest{};
        EXPECT_TRUE(HashFileQuiet(boardPath, digest)) << boardPath;
        return digest;
    }
    bool driverBound()
    {
        return std::filesystem::exists(fake.files.resolve(
            "/sys/bus/platform/drivers/aspeed-smc/1e631000.spi"));
    }

    ubbsim::Board& device()
    {
        return *board;
    }

  private:
    FakePlatform fake;
    PrivateBus bus;
    const std::string root = fake.files.root().string();
    ubbsim::Scenario scenario;
    std::unique_ptr<ubbsim::Board> board;
    ubbsim::Neighbours neighbours;
    ubbsim::DirectPort port{*board};
    ubbsim::VirtualI2c i2c{port};
    ubbsim::VirtualGpio gpio{port};
    ubbsim::VirtualShell shell{root, &port};
    ubbsim::VirtualRetimer retimer{port};
    platform::Platform previous;
};

ubbsim::Scenario sevenOams()
{
    ubbsim::Scenario scenario;
    scenario.oams[7].present = false;
    // Both sides' UBB FPGA images in storage, to compare the flashes with.
    scenario.erot.stagedUbbFpga = {0, 1};
    return scenario;
}

TEST(ImageReaders, AHealthyBoardHoldsWhatItsImageTreeSays)
{
    ReadersOnBoard on(sevenOams());
    std::string out = console([&] {
        UbbFpgaImageStrategy ubb(0, "ubb-fpga.ahdr", "ubb-fpga.bin");
        ASSERT_TRUE(ubb.Fetch());
        const uint32_t size = ubb.activeAhdr.verifiablePayloadSize;
        EXPECT_TRUE(ReadUBBFPGA(ubb, 0, size));
        EXPECT_TRUE(initInactiveSide(ubb, 0x0400));
        EXPECT_EQ(on.digestOf(ubb.activeDumpPath),
                  on.digestOf(ubb.activeImagePath));
        EXPECT_EQ(on.digestOf(ubb.inactiveDumpPath),
                  on.digestOf(ubb.inactiveImagePath));
        EXPECT_FALSE(on.driverBound());

        IfwiImageStrategy ifwi(0, "ifwi.ahdr", "ifwi.bin");
        ASSERT_TRUE(ifwi.Fetch());
        EXPECT_TRUE(ReadIFWIImage(ifwi));
        EXPECT_TRUE(CompareIfwiWithActive(ifwi));
        EXPECT_FALSE(on.driverBound());

        RetimerImageStrategy retimers(0, "retimer.ahdr", "retimer.bin");
        EXPECT_TRUE(ReadRetimerConfig(retimers, 0, "Retimer"));
        SecureBootService service(nullptr, false,
                                  SecureBootService::recordOnly);
        EXPECT_TRUE(CheckRmHash(service, "/var/lib/images/A/rm.bin"));
    });
    EXPECT_THAT(out, HasSubstr("Load UBB-FPGA image from /dev/mtd5"));
    EXPECT_THAT(out, HasSubstr("All good MISO neq val - 0x80"));
    EXPECT_THAT(out, HasSubstr("OAM7 RM sha256 pass"));
}

TEST(ImageReaders, SpoiltDevicesAreFoundOut)
{
    ubbsim::Scenario scenario = sevenOams();
    using ubbsim::DeviceMark;
    scenario.devices.ubbFpgaFlash[1] = DeviceMark::erased;
    scenario.devices.ifwi[3] = DeviceMark::tampered;
    scenario.devices.retimers[0x10] = DeviceMark::tampered;
    scenario.oams[6].rmDigest.fill(0x5A);
    ReadersOnBoard on(scenario);
    std::string out = console([&] {
        UbbFpgaImageStrategy ubb(0, "ubb-fpga.ahdr", "ubb-fpga.bin");
        ASSERT_TRUE(ubb.Fetch());
        EXPECT_TRUE(initInactiveSide(ubb, 0x0400));
        EXPECT_NE(on.digestOf(ubb.inactiveDumpPath),
                  on.digestOf(ubb.inactiveImagePath));

        IfwiImageStrategy ifwi(0, "ifwi.ahdr", "ifwi.bin");
        ASSERT_TRUE(ifwi.Fetch());
        EXPECT_FALSE(ReadIFWIImage(ifwi));
        EXPECT_FALSE(on.driverBound());

        RetimerImageStrategy retimers(0, "retimer.ahdr", "retimer.bin");
        EXPECT_FALSE(ReadRetimerConfig(retimers, 0, "Retimer"));
        SecureBootService service(nullptr, false,
                                  SecureBootService::recordOnly);
        EXPECT_FALSE(CheckRmHash(service, "/var/lib/images/A/rm.bin"));
    });
    EXPECT_THAT(out, HasSubstr("MISO neq reg val is non zero - 0x88"));
    EXPECT_THAT(out, HasSubstr("OAM pres: 0x80"));
    EXPECT_THAT(out, HasSubstr("i2cSwitchValues[4] = 16"));
    EXPECT_THAT(out, Not(HasSubstr("i2cSwitchValues[5]")));
    EXPECT_THAT(out, HasSubstr("OAM6 RM sha256 hash does not match"));
    EXPECT_THAT(out, HasSubstr("OAM5 RM sha256 pass"));
}

// The board's programming tools write the devices they are given: the
// spoilt ones hold their image again, except a retimer that never takes
// one.
TEST(ImageReaders, TheToolsProgramTheDevicesTheyAreGiven)
{
    ubbsim::Scenario scenario = sevenOams();
    using ubbsim::DeviceMark;
    scenario.devices.ubbFpgaFlash[1] = DeviceMark::erased;
    scenario.devices.ifwi[3] = DeviceMark::tampered;
    scenario.devices.retimers[0x10] = DeviceMark::tampered;
    scenario.devices.retimers[0x20] = DeviceMark::tampered;
    scenario.devices.stuckRetimers = {0x20};
    scenario.oams[6].rmDigest.fill(0x5A);
    ReadersOnBoard on(scenario);
    const std::string out = console([&] {
        SecureBootService service(nullptr, false,
                                  SecureBootService::recordOnly);
        UbbFpgaImageStrategy ubb(0, "ubb-fpga.ahdr", "ubb-fpga.bin");
        ASSERT_TRUE(ubb.Fetch());
        const Sha384 sideB = on.digestOf(ubb.inactiveImagePath);
        EXPECT_TRUE(runUbbFpgaPostUpdate());
        EXPECT_TRUE(initInactiveSide(ubb, 0x0400));
        EXPECT_EQ(on.digestOf(ubb.inactiveDumpPath), sideB);

        IfwiImageStrategy ifwi(0, "ifwi.ahdr", "ifwi.bin");
        ASSERT_TRUE(ifwi.Fetch());
        EXPECT_TRUE(flashIfwi(ifwi, 0, ifwi.activeImagePath));
        EXPECT_TRUE(ReadIFWIImage(ifwi));

        // Only the positions of the mux take the image: Retimer_1's leave
        // 0x10 as it was, Retimer_2's mend it; 0x20 never takes one.
        RetimerImageStrategy retimers(0, "retimer.ahdr", "retimer.bin");
        programRetimer(service, retimers, 0, 0x66);
        EXPECT_FALSE(ReadRetimerConfig(retimers, 0, "Retimer"));
        programRetimer(service, retimers, 0, 0x99);
        EXPECT_FALSE(ReadRetimerConfig(retimers, 0, "Retimer"));

        EXPECT_TRUE(updateRm("/var/lib/images/A/rm.bin", "0x00000001"));
        EXPECT_TRUE(CheckRmHash(service, "/var/lib/images/A/rm.bin"));
    });
    EXPECT_EQ(occurrences(out, "i2cSwitchValues[4] = 16"), 2U);
    EXPECT_EQ(occurrences(out, "i2cSwitchValues[5] = 32"), 1U);
    EXPECT_THAT(out, Not(HasSubstr("i2cSwitchValues[6]")));
    EXPECT_THAT(out, HasSubstr("OAM6 RM sha256 pass"));

    // Arguments that no tool takes change nothing.
    const std::string image = "/var/lib/images/A/retimer.bin";
    const std::vector<std::pair<std::vector<std::string>, int>> refused = {
        {{image, "0x1", "66"}, -EINVAL},
        {{image, "0x1", "0x100"}, -EINVAL},
        {{"/var/lib/images/A/none.bin", "0x1", "0xFF"}, -ENOENT},
        {{}, -EINVAL},
    };
    for (const auto& [arguments, result] : refused)
    {
        EXPECT_EQ(on.device().toolRun("/usr/sbin/retimer-update-secureboot.sh",
                                      arguments),
                  result);
    }
    EXPECT_EQ(on.device().toolRun("/usr/sbin/ubb-fpga-update.sh", {image, "C"}),
              -EINVAL);
    EXPECT_EQ(on.device().toolRun("/usr/sbin/rot-update.sh", {image}), -ENOENT);
}

} // namespace
} // namespace orvane::test
