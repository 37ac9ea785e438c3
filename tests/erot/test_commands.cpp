// How the commands read their responses and check their arguments, by
// family.
#include "scripted_device.hpp"

#include <cerrno>
#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace erot::test
{
namespace
{

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Eq;

class Commands : public ::testing::Test
{
  protected:
    ScriptedDevice device;
    uint8_t status = 0xA5;
};

TEST_F(Commands, BadArgumentsSendNothing)
{
    uint32_t value = 0;
    uint8_t small[16];
    uint16_t length = 0;
    Printed text = printed([&] {
        EXPECT_EQ(ErotActiveFlashConfigRead(nullptr, &value, nullptr, &status),
                  -EINVAL);
        EXPECT_EQ(ErotSelectActiveFlash(2, 0, &status), -EINVAL);
        EXPECT_EQ(ErotImageVerify(0, 1, small, 0, small, &status), -EINVAL);
        EXPECT_EQ(ErotSetManageabilityFeature(32, 0, &status), -EINVAL);
        EXPECT_EQ(ErotTokenInstall(small, 633, &status), -EINVAL);
        EXPECT_EQ(ErotGetDeviceId(small, 48, &status), -EINVAL);
        EXPECT_EQ(ErotSMCPersistGet(small, 15, &length, &status), -EINVAL);
        EXPECT_EQ(ErotSMCPersistSet(small, 17, &status), -EINVAL);
        EXPECT_EQ(ErotKeyRevokeBitsGet(small, 11, &length, &status), -EINVAL);
        EXPECT_EQ(ErotRecordSet(small, 47, &status), -EINVAL);
        EXPECT_EQ(ErotTokenRead(nullptr, nullptr, &status), -EINVAL);
    });

    EXPECT_TRUE(device.sent.empty());
    EXPECT_EQ(status, 0xA5);
    EXPECT_EQ(text.out, "Feature must be <= 31\n"
                        "Incorrect token length 633, expected 634\n"
                        "Short Device ID buffer length 48, expected 49\n"
                        "NULL pointer\n");
    EXPECT_EQ(text.err, "ErotSMCPersistGet requires length == 16\n"
                        "ErotSMCPersistSet requires length == 16\n"
                        "ErotKeyRevokeBitsGet requires length == 12\n");
}

// ---- flash sides and boot partitions -----------------------------------

TEST_F(Commands, ActiveFlashConfigReadWidensItsBytesAndZerosOnFailure)
{
    device.reply(sized(0x01, 12, {0x01, 0xFE, 0x02}));
    device.fail(-ETIMEDOUT);
    uint32_t active = 0;
    uint32_t pending = 0;
    bool update = false;

    EXPECT_EQ(ErotActiveFlashConfigRead(&active, &pending, &update, &status),
              0);
    EXPECT_EQ(active, 1U);
    EXPECT_EQ(pending, 0xFEU);
    EXPECT_TRUE(update);

    EXPECT_EQ(ErotActiveFlashConfigRead(&active, &pending, &update, &status),
              -ETIMEDOUT);
    EXPECT_EQ(active, 0U);
    EXPECT_EQ(pending, 0U);
    EXPECT_FALSE(update);
    EXPECT_EQ(status, 0xFF);
}

class BprRead : public Commands
{
  protected:
    int read()
    {
        BootPartitionRecord* raw = nullptr;
        int r = ErotBPRRead(&count, &raw, &status);
        records.reset(raw);
        return r;
    }

    uint32_t count = 99;
    Owned<BootPartitionRecord[]> records;
};

TEST_F(BprRead, CopiesAsManyRecordsAsTheCountSays)
{
    device.reply(response(0x05, 0, {1, 2, 0x10, 0x00, 1}));

    Printed text = printed([&] { EXPECT_EQ(read(), 0); });

    EXPECT_EQ(text.err, "Wrong length BPR response\n");
    EXPECT_EQ(device.sent[0].capacity, 779U);
    ASSERT_EQ(count, 2U);
    EXPECT_EQ(uint16_t{records[0].componentId}, 0x0010);
    EXPECT_EQ(records[0].side, 1);
    EXPECT_EQ(uint16_t{records[1].componentId}, 0);
}

TEST_F(BprRead, OtherVersionsShortAnswersAndRefusalsGiveNothing)
{
    device.reply(response(0x05, 0, {2, 0}));
    device.reply(response(0x05, 0, {1}));
    device.reply(response(0x05, 0x21));
    Printed text = printed([&] {
        EXPECT_EQ(read(), -EPROTONOSUPPORT);
        EXPECT_EQ(read(), -EPROTO);
        EXPECT_EQ(read(), 0);
    });

    EXPECT_EQ(text.err,
              "Unexpected BPR format version 2\nShort BPR response\n");
    EXPECT_EQ(status, 0x21);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(records, nullptr);
}

// ---- security state ----------------------------------------------------

TEST_F(Commands, BkcManifestChecksLengthThenVersion)
{
    device.reply(response(0x07, 0, {1, 2, 0, 4, 3, 2, 1, 0x30, 0, 9, 0, 0, 0}));
    device.reply(response(0x07, 0));
    device.reply(response(0x07, 0, {1, 1, 2, 3}));
    device.reply(response(0x07, 0, {2, 1, 2, 3, 4, 5, 6}));
    uint32_t count = 0;
    BkcManifestEntry* raw = nullptr;

    EXPECT_EQ(ErotGetBKCManifest(&count, &raw, &status), 0);
    Owned<BkcManifestEntry[]> manifest(raw);
    ASSERT_EQ(count, 2U);
    EXPECT_EQ(uint16_t{manifest[0].componentId}, 2);
    // Packed fields are copied out: a reference to one may be misaligned.
    EXPECT_EQ(uint32_t{manifest[0].version}, 0x01020304U);
    EXPECT_EQ(uint16_t{manifest[1].componentId}, 0x30);
    EXPECT_EQ(device.sent[0].capacity, 130U);

    Printed text = printed([&] {
        for (int i = 0; i < 3; ++i)
        {
            EXPECT_EQ(ErotGetBKCManifest(&count, &raw, &status), -EPROTO);
            EXPECT_EQ(raw, nullptr);
        }
    });
    EXPECT_EQ(text.err, "Bad BKC Manifest response length 9\n"
                        "Bad BKC Manifest response length 13\n"
                        "Unknown Get BKC Manifest format version 0x02\n");
}

TEST_F(Commands, SecuritySettingsFillOnlyConsistentOutputs)
{
    Bytes reply = {0x01, 0x44, 0x33, 0x22, 0x11, 0x01, 0xDD, 0xCC, 0xBB, 0xAA};
    device.reply(sized(0x08, 19, reply));
    device.reply(sized(0x08, 19, reply));
    device.reply(sized(0x08, 19, {0x02}));
    uint32_t settings = 0;
    bool present = false;
    uint32_t tokenSettings = 0;

    EXPECT_EQ(
        ErotGetSecuritySettings(&settings, &present, &tokenSettings, &status),
        0);
    EXPECT_EQ(settings, 0x11223344U);
    EXPECT_TRUE(present);
    EXPECT_EQ(tokenSettings, 0xAABBCCDDU);

    present = false;
    Printed text = printed([&] {
        EXPECT_EQ(ErotGetSecuritySettings(nullptr, &present, nullptr, &status),
                  0);
        EXPECT_EQ(ErotGetSecuritySettings(&settings, nullptr, nullptr, &status),
                  -EPROTO);
    });
    EXPECT_FALSE(present);
    EXPECT_EQ(text.err, "Must set both or neither pNVTokenPresent and "
                        "pNVTokenSettings\n"
                        "Unknown Get Security Settings format version 0x02\n");
}

TEST_F(Commands, DeviceIdAndIdentity)
{
    Bytes id(48, 0x00);
    id[0] = 0xAB;
    id[1] = 0x0C;
    id[47] = 0xF0;
    device.reply(sized(0x0C, 57, id));
    device.reply(response(0x0C, 0x03));
    device.reply(sized(0x17, 57, id));
    Bytes buffer(64, 0xEE);
    char* text = nullptr;

    EXPECT_EQ(ErotGetDeviceId(buffer.data(), buffer.size(), &status), 0);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 48), id);
    EXPECT_THAT(Bytes(buffer.begin() + 48, buffer.end()), Each(Eq(0)));
    // A refusal still clears the caller's buffer.
    EXPECT_EQ(ErotGetDeviceId(buffer.data(), buffer.size(), &status), 0);
    EXPECT_THAT(buffer, Each(Eq(0)));

    EXPECT_EQ(ErotGetIdentityHex(&text, &status), 0);
    Owned<char[]> held(text);
    EXPECT_EQ(std::string(text), "ab0c" + std::string(90, '0') + "f0");
}

TEST_F(Commands, RevokeBitsWarnOnAnUnknownFormatButDeliver)
{
    Bytes keyBits = {0x02, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    device.reply(sized(0x21, 22, keyBits));
    Bytes svnBits(59, 0x5A);
    svnBits[0] = 0x01;
    device.reply(sized(0x22, 68, svnBits));
    uint8_t keys[12] = {};
    uint8_t svns[58] = {};
    uint16_t length = 0;

    Printed text = printed([&] {
        EXPECT_EQ(ErotKeyRevokeBitsGet(keys, 12, &length, &status), 0);
    });
    EXPECT_EQ(text.err, "ErotKeyRevokeBitsGet unknown format 2 - erotlib "
                        "update required\n");
    EXPECT_EQ(length, 12);
    EXPECT_THAT(keys, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12));

    EXPECT_EQ(ErotSvnRevokeBitsGet(svns, &length, &status), 0);
    EXPECT_EQ(length, 58);
    EXPECT_THAT(svns, Each(Eq(0x5A)));
}

// ---- records, persist and health ---------------------------------------

TEST_F(Commands, SmcPersistGetCopiesWhateverTheStatus)
{
    Bytes record(16);
    record[0] = 0x0C;
    record[10] = 0x05;
    device.reply(sized(0x12, 25, record));
    device.reply(response(0x12, 0x01));
    SmcPersistRecord persist{};
    auto* bytes = reinterpret_cast<uint8_t*>(&persist);
    uint16_t length = 0;

    EXPECT_EQ(ErotSMCPersistGet(bytes, 16, &length, &status), 0);
    EXPECT_EQ(length, 16);
    EXPECT_EQ(persist.flags,
              persistSecureBootFinished | persistFirmwareCopyCompleted);
    EXPECT_EQ(uint16_t{persist.failoverFlipMask}, 0x05);

    length = 0;
    EXPECT_EQ(ErotSMCPersistGet(bytes, 16, &length, &status), 0);
    EXPECT_EQ(status, 0x01);
    EXPECT_EQ(length, 16);
    EXPECT_EQ(persist.flags, 0);
}

TEST_F(Commands, SmallReadsTakeTheirBytesOnlyAsAllowed)
{
    Bytes present(49, 0x77);
    present[0] = 0x01;
    device.reply(sized(0x1C, 58, present));
    device.reply(sized(0x1C, 58, {0x00, 0x77}));
    device.reply(sized(0x23, 13, {0x78, 0x56, 0x34, 0x12}));
    device.reply(response(0x23, 0x05));
    device.reply(sized(0x32, 11, {0x02, 0x33}));
    device.reply(response(0x32, 0x09));
    device.reply(sized(0x14, 644, {0x01, 0xAB}));
    device.reply(sized(0x14, 644, {0x00, 0x55}));
    bool isPresent = false;
    uint8_t out[48];
    uint32_t reason = 0;
    uint8_t health[2] = {0xEE, 0xEE};
    uint8_t* token = nullptr;
    size_t tokenLength = 7;

    EXPECT_EQ(ErotRecordGet(&isPresent, out, &status), 0);
    EXPECT_TRUE(isPresent);
    EXPECT_THAT(out, Each(Eq(0x77)));
    EXPECT_EQ(ErotRecordGet(&isPresent, out, &status), 0);
    EXPECT_FALSE(isPresent);
    EXPECT_THAT(out, Each(Eq(0)));

    EXPECT_EQ(ErotGetResetReason(&reason, &status), 0);
    EXPECT_EQ(reason, 0x12345678U);
    // Taken on any 0 return: a refusal reads as zeros.
    EXPECT_EQ(ErotGetResetReason(&reason, &status), 0);
    EXPECT_EQ(reason, 0U);

    EXPECT_EQ(ErotHealthStatusPoll(health, &status), 0);
    EXPECT_THAT(health, ElementsAre(0x02, 0xFF));
    EXPECT_EQ(ErotHealthStatusPoll(health, &status), 0);
    EXPECT_THAT(health, ElementsAre(0, 0));

    EXPECT_EQ(ErotTokenRead(&token, &tokenLength, &status), 0);
    Owned<uint8_t[]> held(token);
    ASSERT_EQ(tokenLength, tokenSize);
    EXPECT_EQ(token[0], 0xAB);
    // No token installed: nothing is allocated.
    token = nullptr;
    EXPECT_EQ(ErotTokenRead(&token, &tokenLength, &status), 0);
    EXPECT_EQ(token, nullptr);
    EXPECT_EQ(tokenLength, 0U);
}

} // namespace
} // namespace erot::test
