#include "erot_boot_fixture.hpp"
#include "image_files.hpp"

#include "secure-boot/firmware_copy.hpp"
#include "secure-boot/image_paths.hpp"
#include "secure-boot/secure_boot_service.hpp"

#include <gmock/gmock.h>

namespace orvane::test
{
namespace
{

namespace fs = std::filesystem;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::Not;

const Bytes fresh{'n', 'e', 'w'};
const Bytes stale{'o', 'l', 'd'};

const char* const imageFiles[] = {
    "fwbundle.ahdr",     "retimer.bin",        "retimer.ahdr", "rm.bin",
    "rm.ahdr",           "ifwi.bin",           "ifwi.ahdr",    "ubb-fpga.ahdr",
    "smc_fpga_pldm.bin", "smc_fpga_pldm.ahdr",
};

Bytes ReadBoardFile(const std::string& path)
{
    std::ifstream in(platform::path(path), std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

class FirmwareCopyTest : public ErotBootTest
{
  protected:
    // Every file and dump differs between the sides, and a retimer file
    // of an earlier layout lies on the inactive side only.
    void board(uint8_t side)
    {
        for (const char* dir : {"/var/lib/images", "/tmp/secure-boot", "/sys"})
        {
            fs::remove_all(platform::path(dir));
        }
        for (FwType id : {FwType::BUNDLE, FwType::SMC, FwType::Retimer,
                          FwType::Retimer_1, FwType::Retimer_2, FwType::RM,
                          FwType::IFWI, FwType::UBB_FPGA, FwType::SMC_FPGA})
        {
            service.bprTable->sides[id] = side;
        }
        for (const char* file : imageFiles)
        {
            WriteBoardFile(SidePath(imageRoot, side, file), fresh);
            WriteBoardFile(SidePath(imageRoot, OtherSide(side), file), stale);
        }
        WriteBoardFile(SidePath(imageRoot, OtherSide(side), "retimer-1.bin"),
                       stale);
        for (const char* dump : {"smc.bin", "ubb-fpga.bin"})
        {
            WriteBoardFile(SidePath(workRoot, side, dump), fresh);
            WriteBoardFile(SidePath(workRoot, OtherSide(side), dump), stale);
        }
        const std::string mtd = "/sys/devices/platform/ahb/1e620000.spi/mtd/";
        WriteBoardFile(mtd + "mtd0/name", {'b', 'm', 'c', '\n'});
        WriteBoardFile(mtd + "mtd1/name", Bytes(backup, backup + 11));
        service.bprTable->smcFpgaActiveHash.fill(1);
        service.bprTable->smcFpgaInactiveHash.fill(2);
    }

    // The commands of a copy that finds everything different, in order.
    static std::vector<std::string> allCommands(uint8_t side)
    {
        const std::string a(SideDirectory(side).substr(1, 1));
        const std::string b = a == "A" ? "B" : "A";
        const std::string blocks = " bs=512 count=86272";
        return {
            "dd if=/dev/mtd0 of=/tmp/secure-boot/" + a + "/smc.bin" + blocks,
            "dd if=/dev/mtd1 of=/tmp/secure-boot/" + b + "/smc.bin" + blocks,
            "flash_eraseall /dev/mtd/bmc_backup_update",
            "flash_eraseall /dev/mtd/smc_ahdr_update",
            "flash_eraseall /dev/mtd/apcfg_update",
            "dd if=/tmp/secure-boot/" + a + "/smc.bin of=/dev/mtd1" + blocks,
            "/usr/sbin/ubb-fpga-update.sh /tmp/secure-boot/" + a +
                "/ubb-fpga.bin " + b,
            "/usr/sbin/rot-update.sh /var/lib/images/" + a +
                "/smc_fpga_pldm.bin smc-fpga-pldm",
        };
    }

    std::vector<std::string> commandsSince(size_t start) const
    {
        auto all = fake.shell.commands();
        return {all.begin() + static_cast<std::ptrdiff_t>(start), all.end()};
    }

    static constexpr char backup[] = "bmc_backup\n";
    SecureBootService service{&semaphore, false, SecureBootService::recordOnly};
};

// Each step in its order; the first failing command ends the copy there,
// except the dump of the running flash from side B, which isn't looked at.
TEST_F(FirmwareCopyTest, RunsItsStepsInOrderAndStopsAtTheFirstFailure)
{
    struct Case
    {
        uint8_t side;
        int failing; // index into allCommands, -1 none
        bool result;
    };
    const Case cases[] = {
        {sideA, -1, true}, {sideB, -1, true}, {sideA, 0, false},
        {sideB, 0, true},  {sideA, 1, false}, {sideA, 2, false},
        {sideA, 3, false}, {sideB, 4, false}, {sideA, 5, false},
        {sideA, 6, false}, {sideB, 7, false},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(std::to_string(c.side) + " fails at " +
                     std::to_string(c.failing));
        board(c.side);
        const auto all = allCommands(c.side);
        fake.shell.statusFor.clear();
        if (c.failing >= 0)
        {
            fake.shell.statusFor[all[static_cast<size_t>(c.failing)]] = 256;
        }
        const size_t start = fake.shell.commands().size();
        const std::string out = console(
            [&] { EXPECT_EQ(copyActiveToInactive(service), c.result); });
        const size_t ran = c.result ? all.size() : c.failing + 1U;
        EXPECT_THAT(commandsSince(start),
                    ElementsAreArray(all.begin(), all.begin() + ran));
        // The updater hears of every erase and program, and of its end.
        const bool told = ran > 2;
        EXPECT_EQ(occurrences(out, "Set SMCUpdateOnGoing to true"), told);
        EXPECT_EQ(occurrences(out, "Set SMCUpdateOnGoing to false"), told);
        const uint8_t other = OtherSide(c.side);
        EXPECT_EQ(
            ReadBoardFile(SidePath(imageRoot, other, "smc_fpga_pldm.ahdr")),
            c.result ? fresh : stale);
        // The dumps go once the SMC step has passed.
        EXPECT_EQ(
            fs::exists(platform::path(SidePath(workRoot, other, "smc.bin"))),
            !c.result && c.failing <= 5);
        if (c.result)
        {
            for (const char* file : imageFiles)
            {
                EXPECT_EQ(ReadBoardFile(SidePath(imageRoot, other, file)),
                          fresh)
                    << file;
            }
            EXPECT_FALSE(fs::exists(
                platform::path(SidePath(imageRoot, other, "retimer-1.bin"))));
        }
    }
}

// Equal dumps and equal eRoT digests (both zero when it had none) leave
// the flashes alone; a missing inactive directory fails the copy with both
// paths named.
TEST_F(FirmwareCopyTest, EqualDigestsProgramNothingAndARefusedCopyIsReported)
{
    board(sideA);
    WriteBoardFile("/tmp/secure-boot/B/smc.bin", fresh);
    WriteBoardFile("/tmp/secure-boot/B/ubb-fpga.bin", fresh);
    service.bprTable->smcFpgaActiveHash = {};
    service.bprTable->smcFpgaInactiveHash = {};
    const size_t start = fake.shell.commands().size();
    const std::string out =
        console([&] { EXPECT_TRUE(copyActiveToInactive(service)); });
    EXPECT_EQ(commandsSince(start).size(), 2U) << "the two dumps only";
    EXPECT_THAT(out, Not(HasSubstr("SMCUpdateOnGoing")));
    EXPECT_EQ(ReadBoardFile("/var/lib/images/B/smc_fpga_pldm.bin"), stale);

    board(sideA);
    fs::remove_all(platform::path("/var/lib/images/B"));
    EXPECT_THAT(console([&] { EXPECT_FALSE(copyActiveToInactive(service)); }),
                HasSubstr("Failed to copy image from "
                          "/var/lib/images/A/fwbundle.ahdr to "
                          "/var/lib/images/B/fwbundle.ahdr according to BPR"));
    EXPECT_THAT(events(), ElementsAreArray({std::string(
                              "AutoFWCopyFailure|/var/lib/images/A/"
                              "fwbundle.ahdr|")}));
}

// The persist record decides whether the copy runs and records that it
// did; the semaphore is posted in every case.
TEST_F(FirmwareCopyTest, ParallelTaskFollowsThePersistRecord)
{
    struct Case
    {
        uint8_t readStatus; // of every persist read
        uint8_t flags;      // byte 0 of a good read
        bool copyFails;
        bool result;
        std::vector<std::string> lines; // in the console, in order
    };
    const Case cases[] = {
        {0,
         persist::FIRMWARE_COPY_COMPLETED,
         false,
         true,
         {"Skip firmware copy - already completed",
          "Leave Boot Critical Section"}},
        {0,
         0x04,
         false,
         true,
         {"Copy Active to Inactive", "Success to copy",
          "Set FIRMWARE_COPY_COMPLETED flag", "Copy took",
          "Leave Boot Critical Section"}},
        {0x42,
         0,
         false,
         true,
         {"Get_SMC_Persist process error; continuing the firmware copy.",
          "Success to copy", "Failed to set FIRMWARE_COPY_COMPLETED flag",
          "Leave Boot Critical Section"}},
        {0,
         0,
         true,
         false,
         {"Failed to copy from Active to Inactive.",
          "Leave Boot Critical Section"}},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.lines.front());
        board(sideA);
        EnterBootCriticalSection(&semaphore);
        fake.shell.statusFor.clear();
        if (c.copyFails)
        {
            fake.shell.statusFor[allCommands(sideA)[0]] = 256;
        }
        // A skip or a failed copy reads once; a good read after the copy
        // is written back with the flag set.
        const bool skip = c.flags == persist::FIRMWARE_COPY_COMPLETED;
        const size_t reads = skip || c.copyFails ? 1 : 2;
        const bool written = c.readStatus == 0 && reads == 2;
        Bytes record(16);
        record[0] = c.flags;
        for (size_t read = 0; read < reads; ++read)
        {
            device.reply(erot::test::response(0x12, c.readStatus,
                                              c.readStatus ? Bytes{} : record));
        }
        if (written)
        {
            device.reply(erot::test::response(0x13, 0));
        }
        if (c.result)
        {
            // The post-boot report's refresh: no records.
            device.reply(erot::test::page(0x0F, 0x02, 0, 4, {}));
        }
        device.sent.clear();
        const std::string out = console(
            [&] { EXPECT_EQ(service.parallelTask(&semaphore), c.result); });
        size_t at = 0;
        for (const std::string& line : c.lines)
        {
            at = out.find(line, at);
            EXPECT_NE(at, std::string::npos) << line;
        }
        EXPECT_EQ(sem_trywait(&semaphore), 0) << "posted";
        record[0] |= persist::FIRMWARE_COPY_COMPLETED;
        ASSERT_EQ(device.sent.size(), reads + written + c.result);
        EXPECT_EQ(device.sent[reads].request ==
                      erot::test::request(0x13, record),
                  written);
    }
}

} // namespace
} // namespace orvane::test
