// The device readers on faked seams: the commands they run, the registers
// and lines they touch, and what they leave behind on every way out.

#include "fakes/bus_fixture.hpp"
#include "fakes/console_capture.hpp"
#include "fakes/fake_platform.hpp"
#include "secure-boot/flash_dump.hpp"
#include "secure-boot/ifwi_reader.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/inactive_side.hpp"
#include "secure-boot/rm_hash.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "secure-boot/ubb_fpga_reader.hpp"

#include <openssl/evp.h>

#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>

namespace orvane::test
{
namespace
{

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

const std::string driver = "/sys/bus/platform/drivers/aspeed-smc/";
const std::string up = "echo 1e631000.spi >" + driver + "bind";
const std::string down = "echo 1e631000.spi >" + driver + "unbind";
constexpr int fpgaBus = 3;
constexpr uint8_t fpga = 0x56;

// The faked seams with the two SPI lines and board files to add.
struct Board : FakePlatform
{
    Board()
    {
        gpio.addLines({"SMC_UBB_FPGA_SPI_SEL", "SMC_UBB_FLASH_AB_SEL"});
    }
    void write(const std::string& boardPath, const std::string& contents)
    {
        std::filesystem::path path = files.resolve(boardPath);
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << contents;
    }
    void addMtd(const std::string& entry, const std::string& name)
    {
        write("/sys/devices/platform/ahb/1e631000.spi/mtd/" + entry + "/name",
              name + "\n");
    }
    void bindDriver()
    {
        write(driver + "1e631000.spi/uevent", "");
    }
};

TEST(Readers, DumpFlashCopiesWholeBlocksThenTheTailAtItsOffset)
{
    const std::string dd = "dd if=/dev/mtd5 of=/tmp/d ";
    const std::vector<std::pair<uint32_t, std::vector<std::string>>> cases = {
        {1000,
         {dd + "bs=512 count=1", dd + "bs=1 skip=512 seek=512  count=488"}},
        {300, {dd + "bs=512 count=0", dd + "bs=1 skip=0 seek=0  count=300"}},
        {1024, {dd + "bs=512 count=2"}},
    };
    for (const auto& [size, commands] : cases)
    {
        Board board;
        EXPECT_TRUE(DumpFlash("/dev/mtd5", "/tmp/d", size));
        EXPECT_EQ(board.shell.commands(), commands) << size;
    }
    Board board;
    board.shell.statusFor[cases[0].second.back()] = -1;
    std::string out =
        console([] { EXPECT_FALSE(DumpFlash("/dev/mtd5", "/tmp/d", 1000)); });
    EXPECT_THAT(out, HasSubstr("Failed to dump ifwi remaining data"));
}

TEST(Readers, FlashDeviceIsFoundByItsPartitionName)
{
    Board board;
    EXPECT_EQ(FindFlashDevice(), "");
    board.addMtd("mtd0", "bmc");
    board.addMtd("mtd4", "ubb-spi2:01");
    board.write("/sys/devices/platform/ahb/1e631000.spi/mtd/mtd6/size", "1");
    EXPECT_EQ(FindFlashDevice(), "");
    board.addMtd("mtd5", "ubb-spi2:0");
    EXPECT_EQ(FindFlashDevice(), "/dev/mtd5");
}

TEST(Readers, UbbFpgaReadLeavesTheDriverUnboundAndTheFlashToTheFpga)
{
    struct Case
    {
        uint8_t side;
        bool bound;
        bool flash;
        bool done;
        std::vector<std::string> commands;
        const char* line;
    };
    const std::string dd = "dd if=/dev/mtd5 of=/tmp/secure-boot/";
    const std::vector<Case> cases = {
        {0,
         true,
         true,
         true,
         {down, up, dd + "A/ubb-fpga.bin bs=512 count=2", down},
         "Load UBB-FPGA image from /dev/mtd5"},
        {1,
         false,
         true,
         true,
         {up, dd + "B/ubb-fpga.bin bs=512 count=2", down},
         "ReadUBBFPGA Flashing partition B"},
        {0,
         true,
         false,
         false,
         {down, up, down},
         "Failed to find the device to load UBB-FPGA image"},
    };
    for (const Case& c : cases)
    {
        Board board;
        if (c.bound)
        {
            board.bindDriver();
        }
        if (c.flash)
        {
            board.addMtd("mtd5", "ubb-spi2:0");
        }
        UbbFpgaImageStrategy strategy(0, "ubb-fpga.ahdr", "ubb-fpga.bin");
        std::string out = console(
            [&] { EXPECT_EQ(ReadUBBFPGA(strategy, c.side, 1024), c.done); });
        EXPECT_EQ(board.shell.commands(), c.commands) << c.line;
        EXPECT_THAT(out, HasSubstr(c.line));
        EXPECT_THAT(board.gpio.writes("SMC_UBB_FPGA_SPI_SEL"),
                    ElementsAre(1, 0));
        EXPECT_EQ(board.gpio.writes("SMC_UBB_FLASH_AB_SEL").back(), c.side);
    }
}

TEST(Readers, IfwiReadPassesWhenOnlyAbsentOamsDiffer)
{
    struct Case
    {
        uint8_t presence;
        uint8_t difference; // what the FPGA reports after the stream
        bool flash;
        bool failingBus;
        bool done;
        std::vector<std::string> lines;
    };
    const std::vector<Case> cases = {
        {0x0C, 0x0C, true, false, true, {"All good MISO neq val - 0x0c"}},
        {0x00, 0x00, true, false, true, {"All good MISO neq val - 0x00"}},
        {0x0C,
         0x0D,
         true,
         false,
         false,
         {"MISO neq reg val is non zero - 0x0d", "OAM pres: 0x0c"}},
        {0x0C, 0x0C, false, false, false, {"IFWI file dump failed"}},
        {0x0C,
         0x0C,
         true,
         true,
         false,
         {"Fail to get the value from Slave address 0x63"}},
    };
    for (const Case& c : cases)
    {
        Board board;
        board.bindDriver();
        if (c.flash)
        {
            board.addMtd("mtd5", "ubb-spi2:0");
        }
        board.i2c.addDevice(fpgaBus, fpga);
        board.i2c.setRegister(fpgaBus, fpga, 0x63, c.presence);
        if (c.failingBus)
        {
            board.i2c.inject(
                {I2cOp::Kind::smbusReadBlock, fpgaBus, fpga, EIO, -1, {}});
        }
        // The register is armed before and after the bind; the stream
        // read in between sets it.
        int arms = 0;
        board.i2c.setObserver([&](const I2cOp& op) {
            if (op.kind == I2cOp::Kind::smbusWriteByteData &&
                op.command == 0x42 && ++arms == 2)
            {
                board.i2c.setRegister(fpgaBus, fpga, 0x42, c.difference);
            }
        });
        IfwiImageStrategy strategy(0, "ifwi.ahdr", "ifwi.bin");
        strategy.activeAhdr.verifiablePayloadSize = 1000;
        std::string out =
            console([&] { EXPECT_EQ(ReadIFWIImage(strategy), c.done); });
        for (const std::string& line : c.lines)
        {
            EXPECT_THAT(out, HasSubstr(line));
        }
        EXPECT_EQ(board.i2c.openDescriptors(), 0);
        EXPECT_FALSE(board.gpio.isRequested("SMC_UBB_FPGA_SPI_SEL"));
        EXPECT_EQ(board.gpio.writes("SMC_UBB_FPGA_SPI_SEL").back(), 0);
        EXPECT_EQ(board.shell.commands().back(),
                  "echo 1e631000.spi > " + driver + "unbind");
        if (c.done)
        {
            EXPECT_EQ(board.i2c.registerValue(fpgaBus, fpga, 0x40), 0xFF);
            EXPECT_THAT(board.shell.commands(),
                        Contains("dd if=/dev/mtd5 of=/tmp/ifwi_dump bs=1 "
                                 "skip=512 seek=512  count=488"));
        }
    }
}

// What the RM service answers for one OAM.
enum class RmReply
{
    right,
    wrong,
    error,
    refused,
    shortDigest,
};

TEST(Readers, RmCheckNeedsTheImageDigestFromAllEightOams)
{
    Board board;
    PrivateBus bus;
    board.write("/var/lib/images/A/rm.bin", "rm image");
    uint8_t digest[32];
    unsigned length = 0;
    EVP_Digest("rm image", 8, digest, &length, EVP_sha256(), nullptr);

    std::vector<RmReply> replies;
    BusResponder rm("xyz.openbmc_project.rm");
    const std::string object = "/xyz/openbmc_project/rm/Ctrl";
    const std::string interface = "xyz.openbmc_project.rmIntf";
    rm.addMethod(object, interface, "UpdateAllFuncAreaAddr", "", "b",
                 [](sdbus::MethodCall&, sdbus::MethodReply& reply) {
                     reply << true;
                     return 0;
                 });
    rm.addMethod(object, interface, "GetSHA256HASH", "u", "bay",
                 [&](sdbus::MethodCall& call, sdbus::MethodReply& reply) {
                     uint32_t oam = 0;
                     call >> oam;
                     RmReply kind = replies.at(oam);
                     uint8_t bytes[32];
                     std::copy(digest, digest + 32, bytes);
                     bytes[31] ^= kind == RmReply::wrong ? 1 : 0;
                     if (kind == RmReply::error)
                     {
                         return -EIO;
                     }
                     reply << (kind != RmReply::refused);
                     reply << std::vector<uint8_t>(
                         bytes,
                         bytes + (kind == RmReply::shortDigest ? 16 : 32));
                     return 0;
                 });
    rm.start();

    struct Case
    {
        int oam;
        RmReply reply;
        bool done;
        int asked;
        const char* line;
    };
    const std::vector<Case> cases = {
        {0, RmReply::right, true, 8, "OAM7 RM sha256 pass"},
        {3, RmReply::wrong, false, 8, "OAM3 RM sha256 hash does not match"},
        {5, RmReply::error, false, 8,
         "Failed to get RM HASH, method call error."},
        {0, RmReply::refused, false, 8, "Failed to get RM HASH, eStatus=false"},
        {2, RmReply::shortDigest, false, 3,
         "Failed to copy RM HASH, hash.size()=16"},
    };
    SecureBootService service(nullptr, false, SecureBootService::recordOnly);
    int before = 0;
    for (const Case& c : cases)
    {
        {
            auto lock = rm.hold();
            replies.assign(8, RmReply::right);
            replies[static_cast<size_t>(c.oam)] = c.reply;
        }
        std::string out = console([&] {
            EXPECT_EQ(CheckRmHash(service, "/var/lib/images/A/rm.bin"), c.done);
        });
        EXPECT_THAT(out, HasSubstr(c.line));
        EXPECT_EQ(rm.calls("GetSHA256HASH") - before, c.asked) << c.line;
        before = rm.calls("GetSHA256HASH");
    }
}

TEST(Readers, InactiveSideNeedsItsHeaderAndItsImage)
{
    Board board;
    auto init = [](ImageProcessStrategy& strategy, FwType id, bool done) {
        return console([&] {
            EXPECT_EQ(initInactiveSide(strategy, static_cast<uint32_t>(id)),
                      done);
        });
    };
    const std::string recovery = "autoRecoveryMode failed - need auto "
                                 "recovery ";
    VrImageStrategy vr(0, "vr.ahdr", "vr.bin");
    EXPECT_THAT(init(vr, FwType::VR, false),
                HasSubstr(recovery + "/var/lib/images/B/vr.ahdr by redfish."));
    board.write("/var/lib/images/B/vr.ahdr", std::string(577, 'A'));
    EXPECT_THAT(init(vr, FwType::VR, false),
                HasSubstr("Unexpected inactive_AHDR size [577 != 578]"));
    AhdrHeader header{};
    header.verifiablePayloadSize = 1024;
    const std::string ahdr(reinterpret_cast<const char*>(&header), ahdrSize);
    board.write("/var/lib/images/B/vr.ahdr", ahdr);
    EXPECT_THAT(init(vr, FwType::VR, false),
                HasSubstr(recovery + "/var/lib/images/B/vr.bin by redfish."));
    board.write("/var/lib/images/B/vr.bin", "image");
    init(vr, FwType::VR, true);
    EXPECT_EQ(vr.inactiveAhdr.verifiablePayloadSize, 1024U);

    // The UBB FPGA's inactive image is what its other flash holds.
    UbbFpgaImageStrategy ubb(1, "ubb-fpga.ahdr", "ubb-fpga.bin");
    ubb.inactiveHash.fill(0xAA);
    board.write("/var/lib/images/A/ubb-fpga.ahdr", ahdr);
    EXPECT_THAT(init(ubb, FwType::UBB_FPGA, false),
                HasSubstr("Failed to read inactive UBB-FPGA image"));
    EXPECT_EQ(ubb.inactiveHash, Sha384{});
    board.addMtd("mtd5", "ubb-spi2:0");
    EXPECT_THAT(init(ubb, FwType::UBB_FPGA, false),
                HasSubstr(recovery + "/tmp/secure-boot/A/ubb-fpga.bin"));
    EXPECT_THAT(board.shell.commands(),
                Contains("dd if=/dev/mtd5 of=/tmp/secure-boot/A/ubb-fpga.bin "
                         "bs=512 count=2"));
}

} // namespace
} // namespace orvane::test
