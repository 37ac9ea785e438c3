// The device readers on faked seams: the commands they run, the registers
// and lines they touch, and what they leave behind on every way out.

#include "fakes/bus_fixture.hpp"
#include "fakes/console_capture.hpp"
#include "fakes/fake_platform.hpp"
#include "secure-boot/flash_dump.hpp"
#include "secure-boot/ifwi_reader.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/inactive_side.hpp"
#include "secure-boot/retimer_reader.hpp"
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

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

const std::string mtdDir = "/sys/devices/platform/ahb/1e631000.spi/mtd/";
const std::string driverLink =
    "/sys/bus/platform/drivers/aspeed-smc/1e631000.spi";
const std::string bind = "/sys/bus/platform/drivers/aspeed-smc/bind";
const std::string unbind = "/sys/bus/platform/drivers/aspeed-smc/unbind";
constexpr int fpgaBus = 3;
constexpr uint8_t fpga = 0x56;

class Readers : public ::testing::Test
{
  protected:
    Readers()
    {
        platform.gpio.addLines(
            {"SMC_UBB_FPGA_SPI_SEL", "SMC_UBB_FLASH_AB_SEL"});
    }

    void write(const std::string& boardPath, const std::string& contents)
    {
        fs::path path = platform.files.resolve(boardPath);
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << contents;
    }
    void addMtd(const std::string& entry, const std::string& name)
    {
        write(mtdDir + entry + "/name", name + "\n");
    }
    bool exists(const std::string& boardPath)
    {
        return fs::exists(platform.files.resolve(boardPath));
    }
    std::vector<std::string> commands()
    {
        return platform.shell.commands();
    }

    FakePlatform platform;
};

TEST_F(Readers, DumpFlashCopiesWholeBlocksThenTheTailAtItsOffset)
{
    struct Case
    {
        uint32_t size;
        std::vector<std::string> commands;
        bool tailFails;
    };
    const std::string dd = "dd if=/dev/mtd5 of=/tmp/d ";
    const std::vector<Case> cases = {
        {1000,
         {dd + "bs=512 count=1", dd + "bs=1 skip=512 seek=512  count=488"},
         false},
        {300,
         {dd + "bs=512 count=0", dd + "bs=1 skip=0 seek=0  count=300"},
         false},
        {1024, {dd + "bs=512 count=2"}, false},
        {1000,
         {dd + "bs=512 count=1", dd + "bs=1 skip=512 seek=512  count=488"},
         true},
    };
    for (const Case& c : cases)
    {
        FakePlatform fresh;
        if (c.tailFails)
        {
            fresh.shell.statusFor[c.commands.back()] = -1;
        }
        bool done = false;
        std::string out =
            console([&] { done = DumpFlash("/dev/mtd5", "/tmp/d", c.size); });
        EXPECT_EQ(done, !c.tailFails) << c.size;
        EXPECT_EQ(fresh.shell.commands(), c.commands) << c.size;
        EXPECT_EQ(occurrences(out, "Failed to dump ifwi remaining data"),
                  c.tailFails ? 1U : 0U);
    }
}

TEST_F(Readers, FlashDeviceIsFoundByItsPartitionName)
{
    EXPECT_EQ(FindFlashDevice(), "");
    addMtd("mtd0", "bmc");
    addMtd("mtd4", "ubb-spi2:01");
    write(mtdDir + "mtd6/size", "65536");
    EXPECT_EQ(FindFlashDevice(), "");
    addMtd("mtd5", "ubb-spi2:0");
    EXPECT_EQ(FindFlashDevice(), "/dev/mtd5");
}

TEST_F(Readers, UbbFpgaReadLeavesTheDriverUnboundAndTheFlashToTheFpga)
{
    struct Case
    {
        const char* name;
        uint8_t side;
        bool bound;
        bool flash;
        bool sideLine;
        bool done;
        std::vector<std::string> commands;
        const char* line;
    };
    const std::string ddA = "dd if=/dev/mtd5 of=/tmp/secure-boot/A/"
                            "ubb-fpga.bin bs=512 count=2";
    const std::string ddB = "dd if=/dev/mtd5 of=/tmp/secure-boot/B/"
                            "ubb-fpga.bin bs=512 count=2";
    const std::string up = "echo 1e631000.spi >" + bind;
    const std::string down = "echo 1e631000.spi >" + unbind;
    const std::vector<Case> cases = {
        {"active",
         0,
         true,
         true,
         true,
         true,
         {down, up, ddA, down},
         "Load UBB-FPGA image from /dev/mtd5"},
        {"inactive",
         1,
         false,
         true,
         true,
         true,
         {up, ddB, down},
         "ReadUBBFPGA Flashing partition B"},
        {"no flash",
         0,
         false,
         false,
         true,
         false,
         {up, down},
         "Failed to find the device to load UBB-FPGA image"},
        {"no side line",
         1,
         true,
         true,
         false,
         false,
         {down},
         "Fail to Set SMC_UBB_FLASH_AB_SEL to high."},
    };
    for (const Case& c : cases)
    {
        FakePlatform fresh;
        fresh.gpio.addLines({"SMC_UBB_FPGA_SPI_SEL"});
        if (c.sideLine)
        {
            fresh.gpio.addLines({"SMC_UBB_FLASH_AB_SEL"});
        }
        auto make = [&](const std::string& path) {
            fs::path at = fresh.files.resolve(path);
            fs::create_directories(at.parent_path());
            std::ofstream(at) << "ubb-spi2:0\n";
        };
        if (c.bound)
        {
            make(driverLink + "/uevent");
        }
        if (c.flash)
        {
            make(mtdDir + "mtd5/name");
        }
        UbbFpgaImageStrategy strategy(0, "ubb-fpga.ahdr", "ubb-fpga.bin");
        bool done = false;
        std::string out =
            console([&] { done = ReadUBBFPGA(strategy, c.side, 1024); });
        EXPECT_EQ(done, c.done) << c.name;
        EXPECT_EQ(fresh.shell.commands(), c.commands) << c.name;
        EXPECT_THAT(out, HasSubstr(c.line)) << c.name;
        EXPECT_THAT(fresh.gpio.writes("SMC_UBB_FPGA_SPI_SEL"),
                    ElementsAre(1, 0))
            << c.name;
        if (c.sideLine)
        {
            EXPECT_EQ(fresh.gpio.value("SMC_UBB_FLASH_AB_SEL"), c.side);
        }
    }
}

// The FPGA reports `difference` in register 0x42 once the stream has been
// read, i.e. from the write that arms it after the bind on.
class IfwiRead : public Readers
{
  protected:
    IfwiRead()
    {
        platform.i2c.addDevice(fpgaBus, fpga);
        platform.i2c.setObserver([this](const I2cOp& op) {
            if (op.kind == I2cOp::Kind::smbusWriteByteData &&
                op.command == 0x42 && ++arms == 2)
            {
                platform.i2c.setRegister(fpgaBus, fpga, 0x42, difference);
            }
        });
        write(driverLink + "/uevent", "");
        strategy.activeAhdr.verifiablePayloadSize = 1000;
    }

    bool read(std::string& out)
    {
        bool done = false;
        out = console([&] { done = ReadIFWIImage(strategy); });
        EXPECT_EQ(platform.i2c.openDescriptors(), 0);
        EXPECT_FALSE(platform.gpio.isRequested("SMC_UBB_FPGA_SPI_SEL"));
        EXPECT_EQ(platform.gpio.value("SMC_UBB_FPGA_SPI_SEL"), 0);
        EXPECT_EQ(commands().back(), "echo 1e631000.spi > " + unbind);
        return done;
    }

    IfwiImageStrategy strategy{0, "ifwi.ahdr", "ifwi.bin"};
    std::atomic<int> arms{0};
    std::atomic<uint8_t> difference{0};
};

TEST_F(IfwiRead, OnlyTheAbsentOamsMayDiffer)
{
    struct Case
    {
        uint8_t presence;
        uint8_t difference;
        bool done;
        std::vector<std::string> lines;
    };
    const std::vector<Case> cases = {
        {0x0C, 0x0C, true, {"All good MISO neq val - 0x0c"}},
        {0x00, 0x00, true, {"All good MISO neq val - 0x00"}},
        {0x0C,
         0x0D,
         false,
         {"MISO neq reg val is non zero - 0x0d", "OAM pres: 0x0c"}},
    };
    addMtd("mtd5", "ubb-spi2:0");
    for (const Case& c : cases)
    {
        arms = 0;
        difference = c.difference;
        platform.i2c.setRegister(fpgaBus, fpga, 0x63, c.presence);
        std::string out;
        EXPECT_EQ(read(out), c.done) << out;
        for (const std::string& line : c.lines)
        {
            EXPECT_THAT(out, HasSubstr(line));
        }
    }
    // The routing is left as the read set it, the stream copied in full.
    EXPECT_EQ(platform.i2c.registerValue(fpgaBus, fpga, 0x40), 0xFF);
    EXPECT_EQ(platform.i2c.registerValue(fpgaBus, fpga, 0x41), 0x00);
    EXPECT_THAT(commands(),
                testing::Contains("dd if=/dev/mtd5 of=/tmp/ifwi_dump bs=1 "
                                  "skip=512 seek=512  count=488"));
}

TEST_F(IfwiRead, FailuresUnbindCloseTheBusAndLetTheLineGo)
{
    std::string out;
    EXPECT_FALSE(read(out));
    EXPECT_THAT(out, HasSubstr("IFWI file dump failed"));

    I2cFault fault{I2cOp::Kind::smbusReadByteData, fpgaBus, fpga, EIO, {}, -1};
    platform.i2c.inject(fault);
    EXPECT_FALSE(read(out));
    EXPECT_THAT(out,
                HasSubstr("Fail to get the value from Slave address 0x63"));
}

TEST_F(Readers, RetimerCheckStopsAtTheFirstMismatch)
{
    std::vector<std::pair<int, std::string>> asked;
    int refused = 0x04;
    platform.retimer.answer = [&](int value, const std::string& path) {
        asked.emplace_back(value, path);
        return value == refused ? 1 : 0;
    };
    RetimerImageStrategy strategy(1, "retimer-1.ahdr", "retimer-1.bin");
    std::string out;
    out = console(
        [&] { EXPECT_FALSE(ReadRetimerConfig(strategy, 1, "Retimer_1")); });
    const std::string active = "/var/lib/images/B/retimer-1.bin";
    EXPECT_THAT(asked, ElementsAre(std::pair{2, active}, std::pair{4, active}));
    EXPECT_THAT(out, HasSubstr("i2cSwitchValues[1] = 4, image = " + active));
    EXPECT_THAT(out, HasSubstr("Retimer device images do not match"));

    asked.clear();
    refused = -1;
    console([&] { EXPECT_TRUE(ReadRetimerConfig(strategy, 0, "Retimer")); });
    EXPECT_EQ(asked.size(), 8U);
    EXPECT_EQ(asked.back(),
              (std::pair<int, std::string>{0x80, strategy.inactiveImagePath}));

    asked.clear();
    out = console([&] { EXPECT_FALSE(ReadRetimerConfig(strategy, 1, "RT")); });
    EXPECT_TRUE(asked.empty());
    EXPECT_THAT(out, HasSubstr("Invalid component."));
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

class RmCheck : public BusTest
{
  protected:
    RmCheck()
    {
        const std::string image = "rm image bytes";
        fs::path path = platform.files.resolve("/var/lib/images/A/rm.bin");
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << image;
        unsigned length = 0;
        EVP_Digest(image.data(), image.size(), digest, &length, EVP_sha256(),
                   nullptr);

        const std::string object = "/xyz/openbmc_project/rm/Ctrl";
        const std::string interface = "xyz.openbmc_project.rmIntf";
        rm.addMethod(object, interface, "UpdateAllFuncAreaAddr", "", "b",
                     [](sd_bus_message*, sd_bus_message* reply) {
                         return sd_bus_message_append(reply, "b", 1);
                     });
        rm.addMethod(object, interface, "GetSHA256HASH", "u", "bay",
                     [this](sd_bus_message* call, sd_bus_message* reply) {
                         uint32_t oam = 0;
                         sd_bus_message_read(call, "u", &oam);
                         return answer(replies.at(oam), reply);
                     });
        rm.start();
    }

    int answer(RmReply kind, sd_bus_message* reply)
    {
        uint8_t bytes[32];
        std::copy(std::begin(digest), std::end(digest), bytes);
        if (kind == RmReply::error)
        {
            return -EIO;
        }
        if (kind == RmReply::wrong)
        {
            bytes[31] ^= 1;
        }
        int r = sd_bus_message_append(reply, "b", kind != RmReply::refused);
        size_t size = kind == RmReply::shortDigest ? 16 : sizeof(bytes);
        return r < 0 ? r : sd_bus_message_append_array(reply, 'y', bytes, size);
    }

    bool check(std::string& out)
    {
        SecureBootService service(nullptr, false);
        bool done = false;
        out = console(
            [&] { done = CheckRmHash(service, "/var/lib/images/A/rm.bin"); });
        return done;
    }

    uint8_t digest[32]{};
    std::vector<RmReply> replies;
    BusResponder rm{"xyz.openbmc_project.rm"};
};

TEST_F(RmCheck, EveryOamMustAnswerTheImageDigest)
{
    struct Case
    {
        int oam;
        RmReply reply;
        bool done;
        int asked;
        const char* line;
    };
    const std::vector<Case> cases = {
        {-1, RmReply::right, true, 8, "OAM7 RM sha256 pass"},
        {3, RmReply::wrong, false, 8, "OAM3 RM sha256 hash does not match"},
        {5, RmReply::error, false, 8,
         "Failed to get RM HASH, method call error."},
        {0, RmReply::refused, false, 8, "Failed to get RM HASH, eStatus=false"},
        {2, RmReply::shortDigest, false, 3,
         "Failed to copy RM HASH, hash.size()=16"},
    };
    int before = 0;
    for (const Case& c : cases)
    {
        {
            auto lock = rm.hold();
            replies.assign(8, RmReply::right);
            if (c.oam >= 0)
            {
                replies[static_cast<size_t>(c.oam)] = c.reply;
            }
        }
        std::string out;
        EXPECT_EQ(check(out), c.done) << c.line;
        EXPECT_THAT(out, HasSubstr(c.line));
        EXPECT_EQ(rm.calls("GetSHA256HASH") - before, c.asked) << c.line;
        before = rm.calls("GetSHA256HASH");
    }
    EXPECT_EQ(rm.calls("UpdateAllFuncAreaAddr"), 5);
}

TEST_F(Readers, InactiveSideNeedsItsHeaderAndItsImage)
{
    const std::string ahdrB = "/var/lib/images/B/vr.ahdr";
    const std::string imageB = "/var/lib/images/B/vr.bin";
    VrImageStrategy vr(0, "vr.ahdr", "vr.bin");
    auto run = [&](ImageProcessStrategy& strategy, uint32_t id, bool done) {
        std::string out;
        out = console([&] { EXPECT_EQ(initInactiveSide(strategy, id), done); });
        return out;
    };
    const uint32_t vrId = 0x0700;
    EXPECT_THAT(run(vr, vrId, false),
                HasSubstr("autoRecoveryMode failed - need auto recovery " +
                          ahdrB + " by redfish."));
    write(ahdrB, std::string(577, 'A'));
    EXPECT_THAT(run(vr, vrId, false),
                HasSubstr("Unexpected inactive_AHDR size [577 != 578]"));
    AhdrHeader header{};
    header.verifiablePayloadSize = 1024;
    write(ahdrB,
          std::string(reinterpret_cast<const char*>(&header), sizeof(header)));
    EXPECT_THAT(run(vr, vrId, false),
                HasSubstr("need auto recovery " + imageB + " by redfish."));
    write(imageB, "image");
    run(vr, vrId, true);
    EXPECT_EQ(vr.inactiveAhdr.verifiablePayloadSize, 1024U);

    // The UBB FPGA's inactive image comes from its other flash.
    const uint32_t ubbId = 0x0400;
    UbbFpgaImageStrategy ubb(1, "ubb-fpga.ahdr", "ubb-fpga.bin");
    ubb.inactiveHash.fill(0xAA);
    write("/var/lib/images/A/ubb-fpga.ahdr",
          std::string(reinterpret_cast<const char*>(&header), sizeof(header)));
    EXPECT_THAT(run(ubb, ubbId, false),
                HasSubstr("Failed to read inactive UBB-FPGA image"));
    EXPECT_EQ(ubb.inactiveHash, Sha384{});
    addMtd("mtd5", "ubb-spi2:0");
    EXPECT_THAT(
        run(ubb, ubbId, false),
        HasSubstr("need auto recovery /tmp/secure-boot/A/ubb-fpga.bin"));
    EXPECT_THAT(commands(), testing::Contains("dd if=/dev/mtd5 of=/tmp/"
                                              "secure-boot/A/ubb-fpga.bin "
                                              "bs=512 count=2"));
    EXPECT_EQ(platform.gpio.value("SMC_UBB_FLASH_AB_SEL"), 0);
    write("/tmp/secure-boot/A/ubb-fpga.bin", "dump");
    run(ubb, ubbId, true);
}

} // namespace
} // namespace orvane::test
