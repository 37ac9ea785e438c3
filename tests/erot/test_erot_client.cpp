// Every command's frames: the transaction's header, status and length
// rules, each fixed-size command's exact request and response length, how
// each family reads its answer and checks its arguments; the paged reads,
// the certificate chain, the bus transport, and erotctl.
#include "erotctl_commands.hpp"
#include "scripted_device.hpp"

#include "fakes/bus_fixture.hpp"
#include "fakes/console_capture.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <nlohmann/json.hpp>
#include <numeric>
#include <string>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace erot::test
{
namespace
{

using orvane::test::occurrences;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Eq;
using ::testing::HasSubstr;
using ::testing::Not;

class Commands : public ::testing::Test
{
  protected:
    ScriptedDevice device;
    uint8_t status = 0xA5;
};

TEST_F(Commands, TransactWritesTheHeaderAndChecksTheResponse)
{
    Bytes requestFrame(10, 0xEE);
    Bytes responseFrame(12, 0xCC);
    Printed text;
    auto run = [&](uint8_t* pStatus) {
        int r = 0;
        text = printed([&] {
            r = ErotTransact(0x42, requestFrame.data(), requestFrame.size(),
                             responseFrame.data(), responseFrame.size(),
                             nullptr, pStatus);
        });
        return r;
    };
    device.reply(response(0x42, 0, {1, 2, 3}));
    EXPECT_EQ(run(&status), 0);
    ASSERT_EQ(device.sent.size(), 1U);
    EXPECT_EQ(device.sent[0].request, request(0x42, {0xEE, 0xEE}));
    EXPECT_EQ(std::tuple(device.sent[0].capacity, device.sent[0].timeoutMs,
                         status, responseFrame[11]),
              std::tuple(12U, 6000U, 0, 3));
    EXPECT_EQ(run(nullptr), -EINVAL);
    EXPECT_EQ(text.err, "Missing pErrorCode\n");
    EXPECT_EQ(device.sent.size(), 1U);

    // A lost link reports 0xFF and clears the response.
    device.fail(-ETIMEDOUT);
    EXPECT_EQ(run(&status), -ETIMEDOUT);
    EXPECT_EQ(status, 0xFF);
    EXPECT_THAT(responseFrame, Each(Eq(0)));

    // A short or missized success leaves the status alone.
    status = 0xA5;
    device.reply(request(0x42));
    device.reply(response(0x42, 0));
    EXPECT_EQ(run(&status), -EPROTO);
    EXPECT_EQ(text.err, "Short response for opcode 0x42\n");
    EXPECT_EQ(run(&status), -EPROTO);
    EXPECT_EQ(text.err, "Unexpected response length for opcode 0x42. "
                        "Expected 12, got 9\n");
    EXPECT_EQ(status, 0xA5);
}

struct FixedCommand
{
    const char* name;
    uint8_t opcode;
    Bytes payload;
    size_t responseLength;
    Bytes goodHead; // start of a response payload the command accepts
    std::function<int(uint8_t*)> call;
};

Bytes counting(size_t count, uint8_t first, Bytes prefix = {})
{
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), first);
    return join(std::move(prefix), bytes);
}

const Bytes digest = counting(48, 0x10);
const Bytes ahdr = counting(578, 0);
const Bytes token = counting(634, 3);
const Bytes persist = counting(16, 0x40);
const Bytes record = counting(48, 0x80);

// Outputs of the calls below; what lands in them is checked elsewhere.
uint32_t word1;
uint32_t word2;
bool flag1;
uint8_t buffer[64];
uint16_t length16;
size_t size1;
uint8_t* allocated;
char* hex;

int freed(int result)
{
    std::free(allocated);
    std::free(hex);
    allocated = nullptr;
    hex = nullptr;
    return result;
}

std::vector<FixedCommand> fixedCommands()
{
    Bytes verify =
        join(join({0x00, 0x34, 0x12}, digest), join({0x42, 0x02}, ahdr));
    using B = Bytes;
    // clang-format off
    return {
        {"ActiveFlashConfigRead", 0x01, {}, 12, {}, [](uint8_t* e) { return ErotActiveFlashConfigRead(&word1, &word2, &flag1, e); }},
        {"ImageVerify", 0x02, verify, 9, {}, [](uint8_t* e) { return ErotImageVerify(0, 0x1234, digest.data(), 578, ahdr.data(), e); }},
        {"SignalBootSuccess", 0x04, {0x01}, 9, {}, [](uint8_t* e) { return ErotSignalBootSuccess(1, e); }},
        {"GetSecuritySettings", 0x08, {}, 19, {0x01}, [](uint8_t* e) { return ErotGetSecuritySettings(&word1, &flag1, &word2, e); }},
        {"SetManageabilityFeature", 0x09, {0x1F, 0x01}, 9, {}, [](uint8_t* e) { return ErotSetManageabilityFeature(31, 1, e); }},
        {"TokenInstall", 0x0A, counting(634, 3, {0x00}), 9, {}, [](uint8_t* e) { return ErotTokenInstall(token.data(), 634, e); }},
        {"TokenErase", 0x0B, {}, 9, {}, [](uint8_t* e) { return ErotTokenErase(e); }},
        {"GetDeviceId", 0x0C, {}, 57, {}, [](uint8_t* e) { return ErotGetDeviceId(buffer, 49, e); }},
        {"ARBCommit", 0x0D, {}, 9, {}, [](uint8_t* e) { return ErotARBCommit(e); }},
        {"SelectActiveFlash", 0x10, {0x01, 0x07}, 9, {}, [](uint8_t* e) { return ErotSelectActiveFlash(1, 7, e); }},
        {"SystemReset", 0x11, {0xE9, 0xC3, 0x17, 0x5A, 0x03}, 9, {}, [](uint8_t* e) { return ErotSystemReset(3, e); }},
        {"SMCPersistGet", 0x12, {}, 25, {}, [](uint8_t* e) { return ErotSMCPersistGet(buffer, 16, &length16, e); }},
        {"SMCPersistSet", 0x13, persist, 9, {}, [](uint8_t* e) { return ErotSMCPersistSet(persist.data(), 16, e); }},
        {"TokenRead", 0x14, {}, 644, {}, [](uint8_t* e) { return freed(ErotTokenRead(&allocated, &size1, e)); }},
        {"GetAutoARBCommit", 0x15, {}, 10, {}, [](uint8_t* e) { return ErotGetAutoARBCommit(&flag1, e); }},
        {"SetAutoARBCommit", 0x16, {0x01}, 9, {}, [](uint8_t* e) { return ErotSetAutoARBCommit(1, e); }},
        {"GetIdentityHex", 0x17, {}, 57, {}, [](uint8_t* e) { return freed(ErotGetIdentityHex(&hex, e)); }},
        {"GetOneByte", 0x18, {}, 10, {}, [](uint8_t* e) { return ErotGetOneByte(buffer, e); }},
        {"Command19", 0x19, {}, 9, {}, [](uint8_t* e) { return ErotCommand19(e); }},
        {"Command1A", 0x1A, {}, 9, {}, [](uint8_t* e) { return ErotCommand1A(e); }},
        {"RecordSet", 0x1B, counting(48, 0x80, {0x00, 0x01}), 9, {}, [](uint8_t* e) { return ErotRecordSet(record.data(), 48, e); }},
        {"RecordClear", 0x1B, B(50, 0), 9, {}, [](uint8_t* e) { return ErotRecordClear(e); }},
        {"RecordGet", 0x1C, {0x00}, 58, {}, [](uint8_t* e) { return ErotRecordGet(&flag1, buffer, e); }},
        {"KeyRevokeBitsGet", 0x21, {}, 22, {0x01}, [](uint8_t* e) { return ErotKeyRevokeBitsGet(buffer, 12, &length16, e); }},
        {"SvnRevokeBitsGet", 0x22, {}, 68, {0x01}, [](uint8_t* e) { return ErotSvnRevokeBitsGet(buffer, &length16, e); }},
        {"GetResetReason", 0x23, {}, 13, {}, [](uint8_t* e) { return ErotGetResetReason(&word1, e); }},
        {"SetResetReason", 0x24, {0x78, 0x56, 0x34, 0x12}, 9, {}, [](uint8_t* e) { return ErotSetResetReason(0x12345678, e); }},
        {"HealthStatusPoll", 0x32, {}, 11, {}, [](uint8_t* e) { return ErotHealthStatusPoll(buffer, e); }},
        {"CommandF0", 0xF0, {}, 9, {}, [](uint8_t* e) { return ErotCommandF0(e); }},
        {"CommandF1", 0xF1, {0xEF, 0xBE, 0xAD, 0xDE}, 9, {}, [](uint8_t* e) { return ErotCommandF1(0xDEADBEEF, e); }},
    };
    // clang-format on
}

// Each sends its exact frame, takes its exact length and passes a refusal
// through without a print.
TEST_F(Commands, EveryFixedCommandFrameAndRefusal)
{
    for (const FixedCommand& command : fixedCommands())
    {
        SCOPED_TRACE(command.name);
        device.sent.clear();
        device.reply(
            sized(command.opcode, command.responseLength, command.goodHead));
        device.reply(response(command.opcode, 0x80));
        EXPECT_EQ(command.call(&status), 0);
        EXPECT_EQ(status, 0);
        ASSERT_EQ(device.sent.size(), 1U);
        EXPECT_EQ(device.sent[0].request,
                  request(command.opcode, command.payload));
        EXPECT_EQ(device.sent[0].capacity, command.responseLength);
        Printed text = printed([&] { EXPECT_EQ(command.call(&status), 0); });
        EXPECT_EQ(status, 0x80);
        EXPECT_EQ(text.out + text.err, "");
    }
}

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
    EXPECT_EQ(text.out, "Feature must be <= 31"
                        "Incorrect token length 633, expected 634\n"
                        "Short Device ID buffer length 48, expected 49\n"
                        "NULL pointer");
    EXPECT_EQ(text.err, "ErotSMCPersistGet requires length == 16\n"
                        "ErotSMCPersistSet requires length == 16\n"
                        "ErotKeyRevokeBitsGet requires length == 12\n");
}

TEST_F(Commands, FlashConfigAndBootPartitionRecords)
{
    device.reply(sized(0x01, 12, {0x01, 0xFE, 0x02}));
    device.fail(-ETIMEDOUT);
    uint32_t active = 0;
    uint32_t pending = 0;
    bool update = false;
    auto read = [&] {
        return ErotActiveFlashConfigRead(&active, &pending, &update, &status);
    };
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(std::tuple(active, pending, update), std::tuple(1U, 0xFEU, true));
    // A failure zeros the outputs.
    EXPECT_EQ(read(), -ETIMEDOUT);
    EXPECT_EQ(std::tuple(active, pending, update, status),
              std::tuple(0U, 0U, false, 0xFF));
    uint32_t count = 99;
    Owned<BootPartitionRecord[]> records;
    auto readBpr = [&] {
        BootPartitionRecord* raw = nullptr;
        int r = ErotBPRRead(&count, &raw, &status);
        records.reset(raw);
        return r;
    };
    // As many records as the count says, whatever the length.
    device.reply(response(0x05, 0, {1, 2, 0x10, 0x00, 1}));
    device.reply(response(0x05, 0, {2, 0}));
    device.reply(response(0x05, 0, {1}));
    device.reply(response(0x05, 0x21));
    Printed text = printed([&] { EXPECT_EQ(readBpr(), 0); });
    EXPECT_EQ(text.err, "Wrong length BPR response\n");
    EXPECT_EQ(device.sent[2].capacity, 779U);
    ASSERT_EQ(count, 2U);
    EXPECT_EQ(std::tuple(uint16_t{records[0].componentId}, records[0].side,
                         uint16_t{records[1].componentId}),
              std::tuple(0x0010, 1, 0));
    text = printed([&] {
        EXPECT_EQ(readBpr(), -EPROTONOSUPPORT);
        EXPECT_EQ(readBpr(), -EPROTO);
        EXPECT_EQ(readBpr(), 0);
    });
    EXPECT_EQ(text.err,
              "Unexpected BPR format version 2\nShort BPR response\n");
    EXPECT_EQ(std::tuple(status, count), std::tuple(0x21, 0U));
    EXPECT_EQ(records, nullptr);
}

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
    EXPECT_EQ(std::tuple(uint16_t{manifest[0].componentId},
                         uint32_t{manifest[0].version},
                         uint16_t{manifest[1].componentId}),
              std::tuple(2, 0x01020304U, 0x30));
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
    EXPECT_EQ(std::tuple(settings, present, tokenSettings),
              std::tuple(0x11223344U, true, 0xAABBCCDDU));
    present = false;
    Printed text = printed([&] {
        EXPECT_EQ(ErotGetSecuritySettings(nullptr, &present, nullptr, &status),
                  0);
        EXPECT_EQ(ErotGetSecuritySettings(&settings, nullptr, nullptr, &status),
                  -EPROTO);
    });
    EXPECT_FALSE(present);
    EXPECT_EQ(text.err, "Must set both or neither pNVTokenPresent and "
                        "pNVTokenSettings"
                        "Unknown Get Security Settings format version 0x02\n");
}

TEST_F(Commands, DeviceIdIdentityAndRevokeBits)
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

    // An unknown format of the key bits warns but delivers.
    device.reply(
        sized(0x21, 22, {0x02, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
    Bytes svnBits(59, 0x5A);
    svnBits[0] = 0x01;
    device.reply(sized(0x22, 68, svnBits));
    uint8_t keys[12] = {};
    uint8_t svns[58] = {};
    uint16_t length = 0;
    Printed printedText = printed([&] {
        EXPECT_EQ(ErotKeyRevokeBitsGet(keys, 12, &length, &status), 0);
    });
    EXPECT_EQ(printedText.err, "ErotKeyRevokeBitsGet unknown format 2 - "
                               "erotlib update required\n");
    EXPECT_EQ(length, 12);
    EXPECT_THAT(keys, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12));
    EXPECT_EQ(ErotSvnRevokeBitsGet(svns, &length, &status), 0);
    EXPECT_EQ(length, 58);
    EXPECT_THAT(svns, Each(Eq(0x5A)));
}

// Records, persist and health take their bytes on any 0 return: a refusal
// reads as zeros.
TEST_F(Commands, SmallReadsTakeTheirBytesOnlyAsAllowed)
{
    Bytes persistRecord(16);
    persistRecord[0] = 0x0C;
    persistRecord[10] = 0x05;
    device.reply(sized(0x12, 25, persistRecord));
    device.reply(response(0x12, 0x01));
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
    SmcPersistRecord persist{};
    auto* bytes = reinterpret_cast<uint8_t*>(&persist);
    uint16_t length = 0;
    bool isPresent = false;
    uint8_t out[48];
    uint32_t reason = 0;
    uint8_t health[2] = {0xEE, 0xEE};
    uint8_t* token = nullptr;
    size_t tokenLength = 7;
    EXPECT_EQ(ErotSMCPersistGet(bytes, 16, &length, &status), 0);
    EXPECT_EQ(
        std::tuple(length, persist.flags, uint16_t{persist.failoverFlipMask}),
        std::tuple(16, persistSecureBootFinished | persistFirmwareCopyCompleted,
                   0x05));
    length = 0;
    EXPECT_EQ(ErotSMCPersistGet(bytes, 16, &length, &status), 0);
    EXPECT_EQ(std::tuple(status, length, persist.flags),
              std::tuple(0x01, 16, 0));
    EXPECT_EQ(ErotRecordGet(&isPresent, out, &status), 0);
    EXPECT_TRUE(isPresent);
    EXPECT_THAT(out, Each(Eq(0x77)));
    EXPECT_EQ(ErotRecordGet(&isPresent, out, &status), 0);
    EXPECT_FALSE(isPresent);
    EXPECT_THAT(out, Each(Eq(0)));
    EXPECT_EQ(ErotGetResetReason(&reason, &status), 0);
    EXPECT_EQ(reason, 0x12345678U);
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
    EXPECT_EQ(std::tuple(token, tokenLength), std::tuple(nullptr, 0U));
}

// The paged reads (component information, trace log) and the certificate
// chain: continuation, format versions, limits, and results handed out
// only on success.
constexpr uint8_t lastPage = 0x02;
constexpr uint8_t overflowed = 0x04;

class Paging : public ::testing::Test
{
  protected:
    int componentInfo(uint8_t version)
    {
        ComponentInfo* raw = nullptr;
        int r = ErotGetComponentInfo(version, &count, &raw, &status);
        if (raw != nullptr)
        {
            info.reset(raw);
        }
        return r;
    }

    int traceLog(bool basic)
    {
        TraceLogEntry* raw = nullptr;
        int r = basic ? ErotGetTraceLogBasic(&count, &raw, &over, &status)
                      : ErotGetTraceLog(&count, &raw, &over, &status);
        if (raw != nullptr)
        {
            log.reset(raw);
        }
        return r;
    }

    // A record with time stamp `stamp`; 20-byte ones lack the severity.
    static Bytes entry(uint8_t stamp, uint8_t severity, size_t size = 21)
    {
        Bytes bytes = {stamp, 0,    0, 0, 0, 0,    0, 0, 'B', 'P',     'u',
                       'p',   0x11, 0, 0, 0, 0x22, 0, 0, 0,   severity};
        bytes.resize(size);
        return bytes;
    }

    ScriptedDevice device;
    uint8_t status = 0xA5;
    uint32_t count = 99;
    bool over = false;
    Owned<ComponentInfo[]> info;
    Owned<TraceLogEntry[]> log;
};

TEST_F(Paging, ComponentInfoFollowsTheTokenInEveryFormat)
{
    device.reply(page(0x0F, 0, 0xBEEF, 4, entries(2, 334)));
    device.reply(page(0x0F, 0, 0x0102, 4));
    device.reply(page(0x0F, lastPage, 0, 4, entries(1, 334)));
    EXPECT_EQ(componentInfo(4), 0);
    ASSERT_EQ(device.sent.size(), 3U);
    EXPECT_EQ(device.sent[0].request, request(0x0F, {0, 0, 0}));
    EXPECT_EQ(device.sent[1].request, request(0x0F, {1, 0xEF, 0xBE}));
    EXPECT_EQ(device.sent[2].request, request(0x0F, {1, 0x02, 0x01}));
    EXPECT_EQ(device.sent[0].capacity, 33413U);
    ASSERT_EQ(count, 3U);
    EXPECT_EQ(uint16_t{info[1].componentId}, 0x0202);
    EXPECT_EQ(info[2].reserved326[7], 1);

    // Older formats fill the front of zeroed slots.
    device.reply(page(0x0E, lastPage, 0, 3, entries(2, 324)));
    device.reply(page(0x06, lastPage, 0, 2, entries(1, 319)));
    EXPECT_EQ(componentInfo(3), 0);
    ASSERT_EQ(count, 2U);
    EXPECT_EQ(info[1].bkcGood, 2);
    EXPECT_EQ(info[1].keyRevocationStatus, 0);
    // Any version but 3 and 4 reads format 2.
    EXPECT_EQ(componentInfo(9), 0);
    ASSERT_EQ(count, 1U);
    EXPECT_EQ(info[0].digest[47], 1);
    EXPECT_EQ(info[0].active, 0);
}

TEST_F(Paging, ComponentInfoMalformedPagesAndTheRequestLimit)
{
    device.reply(response(0x0F, 0, {lastPage, 0, 0}));
    device.reply(page(0x0F, lastPage, 0, 3, entries(1, 334)));
    device.reply(page(0x0F, lastPage, 0, 4, entries(1, 324)));
    device.reply(page(0x0F, 0, 0, 4, entries(60, 334)));
    device.reply(page(0x0F, lastPage, 0, 4, entries(41, 334)));
    device.reply(page(0x0F, 0, 1, 4, entries(1, 334)));
    device.reply(response(0x0F, 0x31));
    Printed text = printed([&] {
        for (int i = 0; i < 4; ++i)
        {
            EXPECT_EQ(componentInfo(4), -EPROTO);
        }
        EXPECT_EQ(componentInfo(4), 0);
    });
    EXPECT_EQ(text.out, "Short Get Component Info response"
                        "Unknown Get Component Info version 4:3\n"
                        "Bad Get Component Info length 337\n"
                        "Get Component Info too many responses");
    EXPECT_EQ(status, 0x31);
    EXPECT_EQ(count, 99U);
    EXPECT_EQ(info, nullptr);

    // After a hundred requests the read stops quietly.
    device.sent.clear();
    for (uint16_t i = 0; i < 100; ++i)
    {
        device.reply(page(0x0F, 0, i, 4, i < 50 ? entries(2, 334) : Bytes{}));
    }
    EXPECT_EQ(componentInfo(4), 0);
    EXPECT_EQ(device.sent.size(), 100U);
    EXPECT_EQ(count, 100U);
}

TEST_F(Paging, TraceLogReadsBothFormatsAndFoldsSeveritySix)
{
    device.reply(page(0x31, overflowed, 7, 2, join(entry(1, 3), entry(2, 6))));
    device.reply(page(0x31, lastPage, 0, 2, entry(3, 4)));
    EXPECT_EQ(traceLog(false), 0);
    ASSERT_EQ(count, 3U);
    EXPECT_EQ(device.sent[1].request, request(0x31, {1, 7, 0}));
    EXPECT_EQ(device.sent[0].capacity, 420013U);
    EXPECT_EQ(std::tuple(uint64_t{log[2].timestamp}, std::string(log[0].tag, 4),
                         uint32_t{log[0].data1}, uint32_t{log[0].data2}),
              std::tuple(3U, "BPup", 0x11U, 0x22U));
    EXPECT_EQ(std::tuple(log[0].severity, log[1].severity, log[2].severity),
              std::tuple(3, 5, 4));
    EXPECT_TRUE(over);

    // The basic read takes the short format as information.
    device.reply(
        page(0x30, lastPage, 0, 1, join(entry(5, 3, 20), entry(6, 3, 20))));
    EXPECT_EQ(traceLog(true), 0);
    ASSERT_EQ(count, 2U);
    EXPECT_EQ(uint64_t{log[1].timestamp}, 6U);
    EXPECT_EQ(log[1].severity, 5);
    EXPECT_FALSE(over);
}

TEST_F(Paging, TraceLogMalformedPagesAndTheRecordLimit)
{
    device.reply(page(0x31, lastPage, 0, 1, entry(1, 4, 20)));
    device.reply(page(0x30, 0, 1, 1, entry(1, 4, 20)));
    device.reply(page(0x30, lastPage, 0, 2, entry(2, 4)));
    device.reply(response(0x31, 0, {lastPage, 0, 0}));
    device.reply(page(0x31, lastPage, 0, 2, Bytes(22, 0)));
    device.reply(page(0x31, 0, 1, 2, Bytes(19998 * 21, 0)));
    device.reply(page(0x31, lastPage, 0, 2, Bytes(3 * 21, 0)));
    Printed text = printed([&] {
        EXPECT_EQ(traceLog(false), -EPROTO);
        EXPECT_EQ(traceLog(true), -EPROTO);
        EXPECT_EQ(traceLog(false), -EPROTO);
        EXPECT_EQ(traceLog(false), -EPROTO);
        EXPECT_EQ(traceLog(false), -EPROTO);
    });
    EXPECT_EQ(text.out, "Unknown Trace Log version 1, expected -1\n"
                        "Unknown Trace Log version 2, expected 1\n"
                        "Short Trace Log response"
                        "Bad Trace Log length 35\n"
                        "Trace Log too many responses");
    EXPECT_EQ(log, nullptr);
    EXPECT_EQ(count, 99U);

    // No last-page flag: a page that alone nearly fills the store ends it.
    device.sent.clear();
    device.reply(page(0x31, 0, 1, 2, Bytes(19999 * 21, 0)));
    EXPECT_EQ(traceLog(false), 0);
    EXPECT_EQ(device.sent.size(), 1U);
    EXPECT_EQ(count, 19999U);
}

class CertificationChain : public ::testing::Test
{
  protected:
    int read()
    {
        // A failed read must leave the output null, not as it was.
        uint8_t stale = 0;
        uint8_t* raw = &stale;
        int r = ErotGetCertificationChain(&raw, &status);
        EXPECT_NE(raw, &stale);
        if (raw != &stale)
        {
            chain.reset(raw);
        }
        return r;
    }

    // A reply carrying `data` with `remaining` bytes still to come.
    static Bytes portion(const Bytes& data, uint16_t remaining)
    {
        auto length = static_cast<uint16_t>(data.size());
        return response(0x20, 0,
                        join({static_cast<uint8_t>(length),
                              static_cast<uint8_t>(length >> 8),
                              static_cast<uint8_t>(remaining),
                              static_cast<uint8_t>(remaining >> 8)},
                             data));
    }

    // A chain of `total` bytes whose first 16-bit value is `declared`.
    static Bytes chainOf(size_t total, uint16_t declared)
    {
        Bytes data = entries(total, 1);
        data[0] = static_cast<uint8_t>(declared);
        data[1] = static_cast<uint8_t>(declared >> 8);
        return data;
    }

    ScriptedDevice device;
    uint8_t status = 0xA5;
    Owned<uint8_t[]> chain;
};

TEST_F(CertificationChain, GathersPortionsUntilARefusal)
{
    Bytes whole = chainOf(1000, 1000);
    device.reply(portion(Bytes(whole.begin(), whole.begin() + 600), 400));
    device.reply(portion(Bytes(whole.begin() + 600, whole.end()), 0));
    EXPECT_EQ(read(), 0);
    ASSERT_EQ(device.sent.size(), 2U);
    // Offset 0 with 6144 wanted, then offset 600 with 5544.
    EXPECT_EQ(device.sent[0].request, request(0x20, {0x00, 0x00, 0x00, 0x18}));
    EXPECT_EQ(device.sent[1].request, request(0x20, {0x58, 0x02, 0xA8, 0x15}));
    EXPECT_EQ(device.sent[0].capacity, 6157U);
    ASSERT_NE(chain, nullptr);
    EXPECT_EQ(0, std::memcmp(chain.get(), whole.data(), whole.size()));
    device.sent.clear();
    device.reply(portion(chainOf(100, 200), 100));
    device.reply(response(0x20, 0x09));
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(status, 0x09);
    EXPECT_EQ(device.sent.size(), 2U);
    EXPECT_EQ(chain, nullptr);
}

TEST_F(CertificationChain, RejectsInconsistentPortionsAndChains)
{
    Bytes overclaimed = portion({1, 2, 3}, 0);
    overclaimed[9] = 4;
    device.reply(overclaimed);
    device.reply(portion({}, 0));
    device.reply(portion(chainOf(51, 51), 0));
    device.reply(portion(chainOf(60, 61), 0));
    // The second portion may not exceed the 44 bytes still wanted.
    device.reply(portion(chainOf(6100, 6144), 100));
    device.reply(portion(Bytes(45, 0), 0));
    Printed text = printed([&] {
        for (int i = 0; i < 5; ++i)
        {
            EXPECT_EQ(read(), -EIO);
            EXPECT_EQ(chain, nullptr);
        }
    });
    EXPECT_EQ(text.out, "Bad Get Certification Chain portion 4\n"
                        "Bad Get Certification Chain portion 0\n"
                        "Bad Chain total length 51\n"
                        "Mismatch chain total length 61 vs 60\n"
                        "Bad Get Certification Chain portion 45\n");
}

// The bus transport against an MCTP endpoint on a private system bus: the
// call's arguments, the five attempts, and which failures are final.
class Transport : public ::testing::Test
{
  protected:
    // `plan` holds errnos or byte replies; once it is used up, EBUSY.
    void startEndpoint(std::deque<std::pair<int, Bytes>> answers)
    {
        plan = std::move(answers);
        peer.addMethod(
            "/xyz/openbmc_project/mctp", "xyz.openbmc_project.MCTP.Endpoint",
            "MctpSendRecv", "yyqay", "ay",
            [this](sdbus::MethodCall& call, sdbus::MethodReply& reply) {
                return answer(call, reply);
            });
        peer.start();
    }

    // Runs on the peer's thread under its lock.
    int answer(sdbus::MethodCall& call, sdbus::MethodReply& reply)
    {
        call >> address >> eid >> timeout >> received;
        std::pair<int, Bytes> next = {EBUSY, {}};
        if (!plan.empty())
        {
            next = plan.front();
            plan.pop_front();
        }
        reply << next.second;
        return -next.first;
    }

    int send(const Bytes& frame, uint32_t timeoutMs = 6000)
    {
        int r = 0;
        text = printed([&] {
            r = ErotTransportSendRecv(frame.data(), frame.size(),
                                      responseFrame.data(),
                                      responseFrame.size(), timeoutMs, &length);
        });
        return r;
    }

    orvane::test::PrivateBus bus;
    orvane::test::BusResponder peer{"xyz.openbmc_project.MCTP.SMBus15"};
    std::deque<std::pair<int, Bytes>> plan;
    uint8_t address = 0;
    uint8_t eid = 0;
    uint16_t timeout = 0;
    Bytes received;
    Bytes responseFrame = Bytes(12, 0);
    size_t length = 0;
    Printed text;
};

TEST_F(Transport, CarriesTheFrameToTheErotAndCopiesTheReply)
{
    startEndpoint({{0, {9, 8, 7, 6, 5, 4, 3, 2, 1, 0}}});
    EXPECT_EQ(send({0x7F, 0x01, 0x02}, 30000), 0);
    EXPECT_EQ(length, 10U);
    EXPECT_EQ(Bytes(responseFrame.begin(), responseFrame.begin() + 10),
              Bytes({9, 8, 7, 6, 5, 4, 3, 2, 1, 0}));
    EXPECT_EQ(text.out, "");
    auto lock = peer.hold();
    EXPECT_EQ(address, 100);
    EXPECT_EQ(eid, 0x94);
    EXPECT_EQ(timeout, 25000);
    EXPECT_THAT(received, ElementsAre(0x7F, 0x01, 0x02));
}

// Empty replies and bus errors are retried, at most five attempts in all;
// an oversized reply is final at once.
TEST_F(Transport, RetriesUpToFiveAttemptsButNotAnOversizedReply)
{
    startEndpoint({{0, {}}, {EIO, {}}, {0, {0xAB}}, {0, Bytes(20, 0x11)}});
    EXPECT_EQ(send({1}), 0);
    EXPECT_EQ(peer.calls("MctpSendRecv"), 3);
    EXPECT_EQ(length, 1U);
    EXPECT_EQ(responseFrame[0], 0xAB);
    EXPECT_EQ(occurrences(text.out, "Response length is 0"), 1U);
    EXPECT_EQ(occurrences(text.out, "Retry eRot API"), 2U);

    responseFrame[0] = 0;
    EXPECT_EQ(send({1}), -EIO);
    EXPECT_EQ(peer.calls("MctpSendRecv"), 4);
    EXPECT_EQ(text.out, "RX buffer is not enough (12 < 20)\n");
    EXPECT_EQ(responseFrame[0], 0);

    // The plan is used up: every attempt is busy.
    EXPECT_EQ(send({1}), -EBUSY);
    EXPECT_EQ(peer.calls("MctpSendRecv"), 9);
    EXPECT_EQ(occurrences(text.out,
                          "sd_bus_call error: -16 (Device or resource busy)\n"),
              5U);
    EXPECT_THAT(text.out, HasSubstr("Retry eRot API (1/4)\n"));
    EXPECT_THAT(text.out, HasSubstr("Retry eRot API (4/4)\n"));
    EXPECT_EQ(occurrences(text.out, "Retry eRot API"), 4U);
}

// The fixture's bus puts the address back at the end.
TEST_F(Transport, NoSystemBusIsFinal)
{
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/orvane.sock", 1);
    EXPECT_LT(send({1}), 0);
    EXPECT_THAT(text.out, HasSubstr("sd_bus_default_system error: "));
    EXPECT_THAT(text.out, Not(HasSubstr("Retry")));
}

// erotctl against a scripted device: the decodings that are easy to get
// wrong, the write guard, and what the exit code says.
using Json = nlohmann::json;

class Erotctl : public ::testing::Test
{
  protected:
    ScriptedDevice device;

    erotctl::Outcome run(const std::vector<std::string>& words)
    {
        erotctl::Outcome outcome;
        // The library's own diagnostics are not part of the report.
        printed([&] { outcome = erotctl::run(words); });
        return outcome;
    }

    Json runJson(std::vector<std::string> words)
    {
        words.push_back("--json");
        return Json::parse(run(words).out);
    }
};

ComponentInfo retimerEntry()
{
    ComponentInfo entry{};
    entry.componentId = 0x0601;
    entry.version = 0x01020304;
    entry.svn = 7;
    entry.keyId = 0xA5;
    entry.customerId = 0x0011;
    entry.variantId = 0x0022;
    std::memcpy(entry.details, "rt\x01x", 4);
    std::memset(entry.digest, 0xAB, sizeof(entry.digest));
    entry.active = 1;
    entry.secureBootStatus = 0;
    entry.hashValid = 1;
    entry.bkcGood = 1;
    entry.keyRevocationStatus = 2;
    entry.svnRevocationStatus = 1;
    return entry;
}

Bytes bytesOf(const ComponentInfo& entry, size_t size)
{
    const auto* raw = reinterpret_cast<const uint8_t*>(&entry);
    return Bytes(raw, raw + size);
}

std::string repeated(const std::string& text, size_t times)
{
    std::string all;
    while (times-- > 0)
    {
        all += text;
    }
    return all;
}

// Format 2 entries end before the state bytes and format 3 before the
// revocation bytes: zeros there mean "not reported", not "inactive".
TEST_F(Erotctl, ComponentInfoShowsWhatEachFormatCarries)
{
    device.reply(page(0x0F, 0x02, 0, 4, bytesOf(retimerEntry(), 334)));
    device.reply(page(0x06, 0x02, 0, 2, bytesOf(retimerEntry(), 319)));
    device.reply(page(0x0E, 0x02, 0, 3, bytesOf(retimerEntry(), 324)));
    Json json = runJson({"component-info"});
    Json v2 = runJson({"component-info", "--version", "2"})["components"][0];
    Json v3 = runJson({"component-info", "--version=3"})["components"][0];
    ASSERT_EQ(json["count"], 1);
    // A control byte in the device's text must not break the JSON.
    Json entry = {{"componentId", "0x0601"},      {"component", "Retimer_1"},
                  {"version", "0x01020304"},      {"svn", 7},
                  {"keyId", "0x000000a5"},        {"customerId", "0x0011"},
                  {"variantId", "0x0022"},        {"details", "rt.x"},
                  {"digest", repeated("ab", 48)}, {"active", true},
                  {"secureBootPassed", false},    {"bkcGood", true},
                  {"keyRevocationStatus", 2},     {"svnRevocationStatus", 1}};
    EXPECT_EQ(json["components"][0], entry);
    entry.erase("keyRevocationStatus");
    entry.erase("svnRevocationStatus");
    EXPECT_EQ(v3, entry);
    for (const char* key : {"active", "secureBootPassed", "bkcGood"})
    {
        entry.erase(key);
    }
    entry["digest"] = nullptr;
    EXPECT_EQ(v2, entry);
    EXPECT_EQ(device.sent[2].request[7], 0x0E);
}

TEST_F(Erotctl, BprNamesComponentsAndSides)
{
    // Format 1, two records: UBB_FPGA on B, an unknown identifier on A.
    Bytes payload = {0x01, 0x02, 0x00, 0x04, 0x01, 0x34, 0x12, 0x00};
    device.reply(response(0x05, 0, payload));
    device.reply(response(0x05, 0, payload));
    erotctl::Outcome text = run({"bpr"});
    Json json = runJson({"bpr"});
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_EQ(text.out, "2 boot partition records\n"
                        "0x0400 UBB_FPGA side B\n"
                        "0x1234 unknown side A\n");
    EXPECT_EQ(json["entries"][0]["side"], 1);
    EXPECT_EQ(json["entries"][0]["sideName"], "B");
    EXPECT_EQ(json["entries"][1]["componentId"], "0x1234");
}

TEST_F(Erotctl, PersistDecodesItsBitsAndRoundTripsThroughPersistSet)
{
    Bytes record = {0x0C, 0, 0, 0, 0x01, 0, 0, 0, 0, 0, 0x05, 0x00, 0, 0, 0, 9};
    device.reply(sized(0x12, 25, record));
    device.reply(response(0x13, 0));
    Json json = runJson({"persist"});
    erotctl::Outcome set = run({"--write", "persist-set", json["raw"]});
    EXPECT_EQ(json["flags"], "0x0c");
    EXPECT_EQ(json["secureBootFinished"], true);
    EXPECT_EQ(json["firmwareCopyCompleted"], true);
    EXPECT_EQ(json["smcFpgaRecoveryTried"], true);
    EXPECT_EQ(json["failoverMask"], "0x0005");
    EXPECT_EQ(json["failover"], Json({"UBB_FPGA", "RM"}));
    EXPECT_EQ(set.exitCode, 0);
    EXPECT_EQ(device.sent[1].request, request(0x13, record));
}

TEST_F(Erotctl, TraceLogLinesMatchTheDaemonsConsole)
{
    Bytes entry = {0xD2, 0x04, 0, 0, 0, 0,    0,    0,    'B',  'P', 'u',
                   'p',  0x01, 0, 0, 0, 0xEF, 0xBE, 0xAD, 0xDE, 3};
    device.reply(page(0x31, 0x06, 0, 2, entry));
    // The basic form lacks the severity byte, which reads 5.
    device.reply(page(0x30, 0x02, 0, 1, Bytes(entry.begin(), entry.end() - 1)));
    erotctl::Outcome full = run({"trace-log"});
    Json basic = runJson({"trace-log", "--basic"});
    EXPECT_EQ(full.out, "1 entries, the log overflowed\n"
                        "        1234 BPup 0x00000001 0xdeadbeef 3\n");
    EXPECT_EQ(basic["overflowed"], false);
    EXPECT_EQ(basic["entries"][0]["tag"], "BPup");
    EXPECT_EQ(basic["entries"][0]["data2"], 0xDEADBEEF);
    EXPECT_EQ(basic["entries"][0]["severity"], 5);
    EXPECT_EQ(device.sent[1].request[7], 0x30);
}

TEST_F(Erotctl, WritesNeedTheWriteFlag)
{
    device.reply(response(0x10, 0));
    erotctl::Outcome refused = run({"select-flash", "B", "--persist"});
    ASSERT_TRUE(device.sent.empty());
    erotctl::Outcome sent = run({"select-flash", "B", "--persist", "--write"});
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_THAT(refused.err, HasSubstr("add --write"));
    EXPECT_EQ(sent.exitCode, 0);
    EXPECT_EQ(device.sent.at(0).request, request(0x10, {0x01, 0x01}));
}

TEST_F(Erotctl, RefusalLinkFailureAndMalformedReplyHaveTheirOwnExitCodes)
{
    device.reply(response(0x15, 0x03));
    device.fail(-ETIMEDOUT);
    device.reply(request(0x15));                // no status byte: -71
    device.reply(response(0x05, 0, {0x02, 0})); // BPR format 2: -93
    device.reply(response(0x15, 0x81));
    device.fail(-ETIMEDOUT);
    erotctl::Outcome refused = run({"auto-arb"});
    erotctl::Outcome lost = run({"auto-arb"});
    erotctl::Outcome shortReply = run({"auto-arb"});
    erotctl::Outcome unknownFormat = run({"bpr"});
    Json refusedJson = runJson({"auto-arb"});
    Json lostJson = runJson({"auto-arb"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.err, "auto-arb: refused by the device, status 0x03\n");
    EXPECT_EQ(lost.exitCode, 3);
    EXPECT_EQ(lost.err, "auto-arb: link failure: " +
                            std::string(std::strerror(ETIMEDOUT)) + " (" +
                            std::to_string(-ETIMEDOUT) + ")\n");
    EXPECT_EQ(shortReply.exitCode, 4);
    EXPECT_EQ(shortReply.err, "auto-arb: malformed reply: " +
                                  std::string(std::strerror(EPROTO)) + " (" +
                                  std::to_string(-EPROTO) + ")\n");
    EXPECT_EQ(unknownFormat.exitCode, 4);
    EXPECT_THAT(unknownFormat.err, HasSubstr("bpr: malformed reply: "));
    EXPECT_EQ(refusedJson["status"], 0x81);
    EXPECT_EQ(refusedJson["error"], "status 0x81");
    EXPECT_TRUE(lostJson["status"].is_null());
    EXPECT_EQ(lostJson["return"], -ETIMEDOUT);
}

TEST_F(Erotctl, BadCommandLinesAreUsageErrorsAndSendNothing)
{
    // clang-format off
    const std::vector<std::vector<std::string>> lines = {
        {}, {"no-such-command"}, {"bpr", "extra"}, {"bpr", "--basic"},
        {"--frobnicate", "bpr"}, {"component-info", "--version"},
        {"component-info", "--version", "5"}, {"component-info", "--version", "0x"},
        {"--write", "select-flash", "C"}, {"--write", "set-auto-arb", "yes"},
        {"--write", "set-reset-reason", "4294967296"}, {"--write", "system-reset", "-1"},
        {"--write", "persist-set", "0c00"}, {"--write", "persist-set", repeated("zz", 16)},
        {"--write", "set-manageability", "32", "1"}, {"--write", "set-manageability", "1"},
        {"--write", "cert-chain", "--out", "/nonexistent/dir/chain.bin"}};
    // clang-format on
    for (const auto& line : lines)
    {
        erotctl::Outcome outcome = run(line);
        EXPECT_EQ(outcome.exitCode, 2) << ::testing::PrintToString(line);
        EXPECT_FALSE(outcome.err.empty()) << ::testing::PrintToString(line);
    }
    EXPECT_TRUE(device.sent.empty());
}

} // namespace
} // namespace erot::test
