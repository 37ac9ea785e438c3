// Auto recovery: what the backup side must be for a backup boot, and the
// failover flip that each component family may take once.

#include "erot_boot_fixture.hpp"
#include "image_files.hpp"

#include "secure-boot/auto_recovery.hpp"
#include "secure-boot/bpr_table.hpp"
#include "secure-boot/image_paths.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/secure_boot_service.hpp"

#include <gmock/gmock.h>

namespace orvane::test
{
namespace
{

using erot::test::response;
using ::testing::HasSubstr;

constexpr uint8_t verify = 0x02, select = 0x10, reset = 0x11, get = 0x12,
                  set = 0x13;

class RecoveryTest : public ErotBootTest
{
  protected:
    RecoveryTest()
    {
        service.activeSide = sideA;
    }

    // A strategy of `id` whose backup (side B) has `version`.
    std::shared_ptr<ImageProcessStrategy> backup(FwType id, uint32_t version)
    {
        auto s = CreateImageStrategy(service, static_cast<uint32_t>(id));
        s->bootContext = &context;
        AhdrHeader ahdr = SampleAhdr(static_cast<uint16_t>(id), 4);
        ahdr.currentSWVersion = version;
        WriteBoardFile(s->inactiveAhdrPath, AhdrBytes(ahdr));
        WriteBoardFile(s->inactiveImagePath, {1, 2, 3, 4});
        s->inactiveAhdr = ahdr;
        return s;
    }

    std::vector<uint8_t> opcodes() const
    {
        std::vector<uint8_t> codes;
        for (const auto& sent : device.sent)
        {
            codes.push_back(sent.request[7]);
        }
        return codes;
    }

    void persistRead(uint8_t failoverBits)
    {
        Bytes record(16);
        record[10] = failoverBits;
        device.reply(response(get, 0, record));
    }

    SecureBootService service{&semaphore, false, SecureBootService::recordOnly};
};

TEST_F(RecoveryTest, BackupMustHaveTheManifestsVersionAndVerify)
{
    struct Case
    {
        FwType id;
        uint32_t manifest; // under the manifest's key
        uint32_t backup;
        int status; // the eRoT's answer; -1: not asked
        BackupResult result;
        const char* line;
    };
    const Case cases[] = {
        {FwType::IFWI, 7, 7, 0, BackupResult::verified,
         "autoRecoveryMode IFWI inactive_CurrentSWVersion = 0x00000007"},
        {FwType::RM, 7, 7, 0, BackupResult::verified,
         "autoRecoveryMode RMC CurrentSWVersion"},
        {FwType::Retimer_2, 0xFFFFFFFF, 3, 0, BackupResult::verified,
         "Retimer BKC VERSION = 0xffffffff"},
        {FwType::Retimer_1, 7, 8, -1, BackupResult::otherVersion,
         "Versions of failed image and backup copy are NOT the same"},
        {FwType::IFWI, 0, 0, -1, BackupResult::noManifest, "READ BKC FALSE"},
        {FwType::RM, 7, 7, 0x80, BackupResult::refused,
         "Backup image verify failed"},
        {FwType::VR, 7, 7, -1, BackupResult::notRecoverable,
         "Versions of failed image and backup image are the same"},
    };
    for (const Case& c : cases)
    {
        const std::string name(FindFwNames(static_cast<uint32_t>(c.id))->text);
        SCOPED_TRACE(name + " " + c.line);
        const bool retimer = name.starts_with("Retimer");
        service.bkcManifest[retimer ? "Retimer" : name].version = c.manifest;
        SetSideOf(*service.bprTable, c.id, sideA);
        device.sent.clear();
        auto s = backup(c.id, c.backup);
        // The backup's own identifier goes to the eRoT.
        s->inactiveAhdr.componentId = 0x0600;
        if (c.status >= 0)
        {
            device.reply(response(verify, static_cast<uint8_t>(c.status)));
        }
        const std::string out = console([&] {
            EXPECT_EQ(verifyBackupImage(service, *s, name, c.id), c.result);
        });
        EXPECT_THAT(out, HasSubstr(c.line));
        ASSERT_EQ(device.sent.size(), c.status >= 0 ? 1U : 0U);
        if (c.status >= 0)
        {
            EXPECT_EQ(device.sent[0].request[9], 0x00);
            EXPECT_EQ(device.sent[0].request[10], 0x06);
            EXPECT_EQ(s->inactiveHash, Sha384Of({1, 2, 3, 4}));
        }
        EXPECT_EQ(SideOf(*service.bprTable, c.id),
                  c.result == BackupResult::verified ? sideB : sideA);
    }
}

// All three retimers share one bit: after any of them flipped, none may
// flip again until a success clears it.
TEST_F(RecoveryTest, OneFlipPerFamilyUntilTheBitIsCleared)
{
    struct Case
    {
        FwType id;
        uint8_t bitsBefore; // -: the read is refused
        bool readGood;
        bool flipped;
        const char* line;
    };
    const Case cases[] = {
        {FwType::Retimer_2, 0x00, true, true,
         "Retimer_2 failover flip entry to reset persisting boot logs."},
        {FwType::Retimer_1, 0x02, true, false,
         "Retimer_1 auto-recovery mode entry failure."},
        {FwType::Retimer, 0x0D, true, true, "System Power reset."},
        {FwType::IFWI, 0x07, true, true, "System Power reset."},
        {FwType::UBB_FPGA, 0x01, true, false, "entry failure."},
        {FwType::VR, 0x00, true, false, "Unknown failover flip FW type"},
        {FwType::RM, 0x00, false, false, "RM Get_SMC_Persist process error."},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.line);
        device.sent.clear();
        const std::string name(FindFwNames(static_cast<uint32_t>(c.id))->text);
        c.readGood ? persistRead(c.bitsBefore)
                   : device.reply(response(get, 0x42));
        if (c.flipped)
        {
            device.reply(response(select, 0));
            device.reply(response(set, 0));
            device.reply(response(reset, 0));
        }
        const std::string out = console(
            [&] { EXPECT_EQ(failoverFlip(service, c.id, name), c.flipped); });
        EXPECT_THAT(out, HasSubstr(c.line));
        if (!c.flipped)
        {
            EXPECT_EQ(opcodes(), std::vector<uint8_t>{get});
            continue;
        }
        EXPECT_EQ(opcodes(), (std::vector<uint8_t>{get, select, set, reset}));
        EXPECT_EQ(device.sent[1].request[8], sideB) << "the other flash";
        EXPECT_EQ(device.sent[1].request[9], 1) << "kept across the reset";
        EXPECT_EQ(device.sent[2].request[8 + 10],
                  c.bitsBefore | FailoverBit(c.id));
    }
}

TEST_F(RecoveryTest, OnlyABackupBootMarksTheComponentRecovered)
{
    service.bkcManifest["IFWI"].version = 7;
    auto s = backup(FwType::IFWI, 7);
    device.reply(response(verify, 0));
    console([&] {
        EXPECT_TRUE(autoRecoveryProcess(service, s, "IFWI", FwType::IFWI));
    });
    // Another version flips the SMC instead and waits for its reset: a
    // process that outlives the wait fails the component unverified.
    service.bkcManifest["RM"].version = 7;
    auto rm = backup(FwType::RM, 6);
    persistRead(0);
    for (uint8_t op : {select, set, reset})
    {
        device.reply(response(op, 0));
    }
    console([&] {
        EXPECT_FALSE(autoRecoveryProcess(service, rm, "RM", FwType::RM));
    });
    EXPECT_EQ(clock.sleeps().back(), std::chrono::seconds(30));
    // A backup without its image can't serve.
    std::filesystem::remove(platform::path(s->inactiveImagePath));
    console([&] {
        EXPECT_FALSE(
            autoRecoveryProcess(service, s, "Retimer_1", FwType::Retimer_1));
    });
    for (const ComponentEntry& entry : service.components)
    {
        EXPECT_EQ(entry.recovered, entry.name == "IFWI") << entry.name;
    }
    EXPECT_THAT(events(), ::testing::Contains(
                              "AutomaticRecoveryFailureCritical|Retimer_1|"
                              "Failed to initialize Inactive Side"));
}

} // namespace
} // namespace orvane::test
