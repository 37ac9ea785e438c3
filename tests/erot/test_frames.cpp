// Frames: the transaction's header, status and length rules, then every
// fixed-size command's exact request, the exact response length it asks
// for, and a refusal passing through without a print.
#include "scripted_device.hpp"

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <numeric>
#include <ostream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace erot::test
{
namespace
{

using ::testing::Each;
using ::testing::Eq;

class Transact : public ::testing::Test
{
  protected:
    // Opcode 0x42, a 10-byte request and a 12-byte response.
    int run()
    {
        int r = 0;
        text = printed([&] {
            r = ErotTransact(0x42, requestFrame.data(), requestFrame.size(),
                             responseFrame.data(), responseFrame.size(),
                             nullptr, &status);
        });
        return r;
    }

    ScriptedDevice device;
    Bytes requestFrame = Bytes(10, 0xEE);
    Bytes responseFrame = Bytes(12, 0xCC);
    uint8_t status = 0xA5;
    Printed text;
};

TEST_F(Transact, WritesTheHeaderInFrontOfThePayload)
{
    device.reply(response(0x42, 0, {1, 2, 3}));

    EXPECT_EQ(run(), 0);

    ASSERT_EQ(device.sent.size(), 1U);
    EXPECT_EQ(device.sent[0].request, request(0x42, {0xEE, 0xEE}));
    EXPECT_EQ(device.sent[0].capacity, 12U);
    EXPECT_EQ(device.sent[0].timeoutMs, 6000U);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(responseFrame[11], 3);
}

TEST_F(Transact, NeedsAnErrorCodeOutput)
{
    Printed text = printed([&] {
        EXPECT_EQ(ErotTransact(0x42, requestFrame.data(), 10,
                               responseFrame.data(), 12, nullptr, nullptr),
                  -EINVAL);
    });
    EXPECT_EQ(text.err, "Missing pErrorCode\n");
    EXPECT_TRUE(device.sent.empty());
}

TEST_F(Transact, LostLinkReportsFFAndClearsTheResponse)
{
    device.fail(-ETIMEDOUT);

    EXPECT_EQ(run(), -ETIMEDOUT);

    EXPECT_EQ(status, 0xFF);
    EXPECT_THAT(responseFrame, Each(Eq(0)));
}

TEST_F(Transact, ShortOrMissizedSuccessIsAProtocolErrorWithoutStatus)
{
    device.reply(request(0x42));
    device.reply(response(0x42, 0));

    EXPECT_EQ(run(), -EPROTO);
    EXPECT_EQ(text.err, "Short response for opcode 0x42\n");
    EXPECT_EQ(run(), -EPROTO);
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
    // Start of a response payload the command accepts.
    Bytes goodHead;
    std::function<int(uint8_t*)> call;
};

void PrintTo(const FixedCommand& command, std::ostream* out)
{
    *out << command.name;
}

Bytes counting(size_t count, uint8_t first, Bytes prefix = {})
{
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), first);
    prefix.insert(prefix.end(), bytes.begin(), bytes.end());
    return prefix;
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
char* text;

// Releases what the last call handed out.
int freed(int result)
{
    std::free(allocated);
    std::free(text);
    allocated = nullptr;
    text = nullptr;
    return result;
}

std::vector<FixedCommand> fixedCommands()
{
    Bytes verify = {0x00, 0x34, 0x12};
    verify.insert(verify.end(), digest.begin(), digest.end());
    verify.insert(verify.end(), {0x42, 0x02});
    verify.insert(verify.end(), ahdr.begin(), ahdr.end());
    using B = Bytes;
    // One row per command: name, opcode, request payload, response length,
    // start of an accepted response payload, the call.
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
        {"GetIdentityHex", 0x17, {}, 57, {}, [](uint8_t* e) { return freed(ErotGetIdentityHex(&text, e)); }},
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

class Frames : public ::testing::TestWithParam<FixedCommand>
{
  protected:
    ScriptedDevice device;
    uint8_t status = 0xA5;
};

TEST_P(Frames, SendsTheExactFrameAndTakesTheExactLength)
{
    const FixedCommand& command = GetParam();
    device.reply(
        sized(command.opcode, command.responseLength, command.goodHead));

    EXPECT_EQ(command.call(&status), 0);

    EXPECT_EQ(status, 0);
    ASSERT_EQ(device.sent.size(), 1U);
    EXPECT_EQ(device.sent[0].request, request(command.opcode, command.payload));
    EXPECT_EQ(device.sent[0].capacity, command.responseLength);
}

TEST_P(Frames, PassesARefusalThroughSilently)
{
    const FixedCommand& command = GetParam();
    device.reply(response(command.opcode, 0x80));

    Printed text = printed([&] { EXPECT_EQ(command.call(&status), 0); });

    EXPECT_EQ(status, 0x80);
    EXPECT_EQ(text.out + text.err, "");
}

INSTANTIATE_TEST_SUITE_P(EveryFixedCommand, Frames,
                         ::testing::ValuesIn(fixedCommands()),
                         [](const auto& info) {
                             return std::string(info.param.name);
                         });

} // namespace
} // namespace erot::test
