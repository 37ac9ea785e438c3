// The emulated eRoT through the client library as the daemon uses it:
// stored values, flash sides and resets, saved state, the paged reads.

#include "erot_harness.hpp"

#include "erot/opcodes.hpp"
#include "erot/state_json.hpp"

#include <openssl/x509.h>

#include <array>
#include <chrono>
#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ubbsim::erot::test
{
namespace
{

using namespace ::erot;
using namespace std::chrono_literals;
using ::testing::Each;
using ::testing::ElementsAreArray;

class Device : public ErotTest
{
  protected:
    // Active side, pending side, update flag.
    std::tuple<uint32_t, uint32_t, bool> flashConfig()
    {
        uint32_t active = 9;
        uint32_t pending = 9;
        bool update = false;
        EXPECT_EQ(
            ErotActiveFlashConfigRead(&active, &pending, &update, &status), 0);
        return {active, pending, update};
    }

    std::array<uint8_t, 16> persist()
    {
        std::array<uint8_t, 16> bytes{};
        uint16_t length = 0;
        EXPECT_EQ(ErotSMCPersistGet(bytes.data(), 16, &length, &status), 0);
        return bytes;
    }

    std::vector<TraceLogEntry> traceLog(bool basic, bool& overflowed)
    {
        uint32_t count = 0;
        TraceLogEntry* raw = nullptr;
        EXPECT_EQ((basic ? ErotGetTraceLogBasic
                         : ErotGetTraceLog)(&count, &raw, &overflowed, &status),
                  0);
        Owned<TraceLogEntry> owned(raw);
        return {raw, raw + count};
    }
};

TEST_F(Device, WrittenValuesReadBack)
{
    boot();
    uint8_t record[16] = {0x04, 0, 0, 0, 1};
    ASSERT_EQ(ErotSMCPersistSet(record, sizeof(record), &status), 0);
    EXPECT_THAT(persist(), ElementsAreArray(record));
    bool enabled = false;
    uint32_t reason = 0;
    ASSERT_EQ(ErotSetAutoARBCommit(1, &status), 0);
    ASSERT_EQ(ErotGetAutoARBCommit(&enabled, &status), 0);
    EXPECT_TRUE(enabled);
    ASSERT_EQ(ErotSetResetReason(3, &status), 0);
    ASSERT_EQ(ErotGetResetReason(&reason, &status), 0);
    EXPECT_EQ(reason, 3U);
    uint8_t mine[48] = {1, 2, 3};
    uint8_t back[48] = {};
    bool present = false;
    ASSERT_EQ(ErotRecordSet(mine, sizeof(mine), &status), 0);
    ASSERT_EQ(ErotRecordGet(&present, back, &status), 0);
    EXPECT_TRUE(present);
    EXPECT_THAT(back, ElementsAreArray(mine));
    ASSERT_EQ(ErotRecordClear(&status), 0);
    ASSERT_EQ(ErotRecordGet(&present, back, &status), 0);
    EXPECT_FALSE(present);
    EXPECT_EQ(ErotSetManageabilityFeature(31, 1, &status), 0);
    EXPECT_EQ(endpoint->state().manageability, 1U << 31);
    EXPECT_EQ(ErotCommandF1(0xCAFE, &status), 0);
    EXPECT_EQ(endpoint->state().commandF1Value, 0xCAFEU);
    std::vector<uint8_t> token(tokenSize, 0x11);
    token[0] = 0x2A;
    ASSERT_EQ(ErotTokenInstall(token.data(), token.size(), &status), 0);
    uint32_t settings = 0;
    uint32_t tokenSettings = 0;
    ASSERT_EQ(
        ErotGetSecuritySettings(&settings, &present, &tokenSettings, &status),
        0);
    EXPECT_TRUE(present);
    EXPECT_EQ(tokenSettings, 0x1111112AU);
    uint8_t* read = nullptr;
    size_t length = 0;
    ASSERT_EQ(ErotTokenRead(&read, &length, &status), 0);
    Owned<uint8_t> owned(read);
    EXPECT_EQ(std::vector<uint8_t>(read, read + length), token);
    ASSERT_EQ(ErotTokenErase(&status), 0);
    ASSERT_EQ(ErotTokenRead(&read, &length, &status), 0);
    EXPECT_EQ(read, nullptr);
}

// The certificate holds the identity key; the manifest and the revocation
// bits describe the board.
TEST_F(Device, IdentityManifestAndRevocation)
{
    boot();
    uint8_t* raw = nullptr;
    ASSERT_EQ(ErotGetCertificationChain(&raw, &status), 0);
    Owned<uint8_t> chain(raw);
    const unsigned char* der = raw + 52;
    X509* certificate = d2i_X509(nullptr, &der, (raw[0] | raw[1] << 8) - 52);
    ASSERT_NE(certificate, nullptr);
    EXPECT_EQ(EVP_PKEY_eq(X509_get0_pubkey(certificate), keys().identity.get()),
              1);
    X509_free(certificate);
    uint32_t count = 0;
    BkcManifestEntry* entries = nullptr;
    ASSERT_EQ(ErotGetBKCManifest(&count, &entries, &status), 0);
    Owned<BkcManifestEntry> manifest(entries);
    ASSERT_EQ(count, 10U);
    EXPECT_EQ(uint16_t{entries[4].componentId}, 0x0400);
    EXPECT_EQ(uint32_t{entries[4].version}, 0x01000400U);
    uint8_t bits[12] = {};
    uint8_t svns[58] = {};
    uint16_t length = 0;
    ASSERT_EQ(ErotKeyRevokeBitsGet(bits, sizeof(bits), &length, &status), 0);
    EXPECT_EQ(bits[0], 1U << revokedKeyIndex);
    ASSERT_EQ(ErotSvnRevokeBitsGet(svns, &length, &status), 0);
    EXPECT_EQ(svns[4], 1) << "UBB_FPGA's committed minimum";
    EXPECT_EQ(svns[7], 0) << "no Retimer_1 on this board";
}

// The plain commands answer with the lengths the client expects; frames
// that the client never sends are refused, not misread.
TEST_F(Device, PlainCommandsAnswerAndMalformedRequestsAreRefused)
{
    boot();
    uint8_t value = 0;
    EXPECT_THAT((std::vector{ErotGetOneByte(&value, &status),
                             ErotCommand19(&status), ErotCommand1A(&status),
                             ErotCommandF0(&status), int{status}}),
                Each(0));
    uint8_t request[16] = {};
    uint8_t response[9] = {};
    auto send = [&](uint8_t opcode, size_t length) {
        EXPECT_EQ(ErotTransact(opcode, request, length, response,
                               sizeof(response), nullptr, &status),
                  0);
        return status;
    };
    EXPECT_EQ(send(0x03, 8), status::unknownCommand);
    EXPECT_EQ(send(op::arbCommit, 9), status::badLength);
    request[8] = 2; // no side 2
    EXPECT_EQ(send(op::selectActiveFlash, 10), status::invalidArgument);
    EXPECT_EQ(send(op::systemReset, 13), status::invalidArgument)
        << "no guard word";
    request[8] = 1; // continuation without a first page
    EXPECT_EQ(send(op::traceLog, 11), status::invalidArgument);
}

TEST_F(Device, SelectedSideBootsAfterTheResetThatTheDeviceAsksFor)
{
    boot();
    uint8_t record[16] = {0x0C}; // secure boot finished, copy completed
    ASSERT_EQ(ErotSMCPersistSet(record, sizeof(record), &status), 0);
    ASSERT_EQ(ErotSelectActiveFlash(1, 1, &status), 0);
    EXPECT_EQ(flashConfig(), std::tuple(0U, 1U, true));
    ASSERT_EQ(ErotSetResetReason(3, &status), 0);
    ASSERT_EQ(ErotSystemReset(1, &status), 0);
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(endpoint->resetDue()) << "the reply goes out first";
    now += 100ms;
    EXPECT_TRUE(endpoint->resetDue());
    EXPECT_FALSE(endpoint->resetDue()) << "once";
    endpoint->smcReset();

    // Still to be updated until the SMC clears it.
    EXPECT_EQ(flashConfig(), std::tuple(1U, 1U, true));
    uint32_t reason = 0;
    ASSERT_EQ(ErotGetResetReason(&reason, &status), 0);
    EXPECT_EQ(reason, 3U);
    EXPECT_EQ(persist()[0], 0x04) << "the new side has not been copied";
    auto entries = componentInfo();
    EXPECT_EQ(entries[0].active, 0) << "side A of the first component";
    EXPECT_EQ(entries[1].active, 1);
    ASSERT_EQ(ErotSelectActiveFlash(1, 0, &status), 0);
    EXPECT_FALSE(std::get<2>(flashConfig()));

    // Boot success ends the FPGA recovery mark.
    record[4] = 1;
    ASSERT_EQ(ErotSMCPersistSet(record, sizeof(record), &status), 0);
    ASSERT_EQ(ErotSignalBootSuccess(1, &status), 0);
    EXPECT_EQ(persist()[4], 0);
}

// A component whose record names its own side stays there when the SMC
// flips; the others follow the SMC.
TEST_F(Device, BootPartitionRecordsFollowTheSmcUnlessPinned)
{
    ErotScenario scenario;
    scenario.components["UBB_FPGA"].bootSide = 0;
    boot(scenario);
    ASSERT_EQ(ErotSelectActiveFlash(1, 0, &status), 0);
    endpoint->smcReset();
    for (const auto& record : bootPartitions())
    {
        EXPECT_EQ(record.side, record.componentId == 0x0400 ? 0 : 1)
            << std::hex << record.componentId;
    }
}

// What a run saves is what the next one loads, field for field, and what
// the next run goes on from: boot partition records, what the eRoT found
// of each side, revocations requested before and completed by its commit,
// and a trace log whose new entries are stamped after the saved ones.
TEST_F(Device, NextRunGoesOnFromTheSavedState)
{
    ErotScenario scenario;
    scenario.traceLog = {{"BPup", 1, 2, 3}};
    scenario.components["UBB_FPGA"].keyRevocation = 1;
    scenario.components["IFWI"].svnRevocation = 1;
    boot(scenario);
    std::vector<uint8_t> token(tokenSize, 7);
    ErotTokenInstall(token.data(), token.size(), &status);
    now = 40s;
    ErotSelectActiveFlash(1, 1, &status);
    ErotState state = endpoint->state();
    state.record = std::array<uint8_t, 48>{9};
    ComponentState& ubbFpga = *state.component(0x0400);
    ubbFpga.bootSide = 1;
    ubbFpga.sides[1].secureBootStatus = 0;
    nlohmann::json saved = stateToJson(state);
    EXPECT_EQ(stateToJson(stateFromJson(saved)), saved);
    saveState(state, (root / "state.json").string());
    EXPECT_THROW(saveState(state, (root / "none/state.json").string()),
                 std::runtime_error);

    ErotState next = setUpBoardErot({}, root, keys());
    adoptSaved(next, loadState((root / "state.json").string()));
    now = 0s;
    boot(std::move(next));
    ASSERT_EQ(ErotARBCommit(&status), 0);
    const auto& log = endpoint->state().traceLog;
    ASSERT_EQ(log.size(), state.traceLog.size() + 2) << "BOOT, ARBC";
    for (size_t i = state.traceLog.size(); i < log.size(); ++i)
    {
        EXPECT_GT(log[i].timestamp, state.traceLog.back().timestamp);
    }
    for (const auto& record : bootPartitions())
    {
        EXPECT_EQ(record.side, 0 + (record.componentId == 0x0400));
    }
    for (const ComponentInfo& entry : componentInfo())
    {
        uint16_t id = entry.componentId;
        bool spoilt = id == 0x0400 && entry.active == 1;
        EXPECT_EQ(entry.secureBootStatus, spoilt ? 0 : 1) << std::hex << id;
        EXPECT_EQ(entry.keyRevocationStatus, id == 0x0400 ? 2 : 0);
        EXPECT_EQ(entry.svnRevocationStatus, id == 0x0500 ? 2 : 0);
    }
}

TEST_F(Device, LongTraceLogArrivesWholeAndInOrder)
{
    ErotState state;
    state.traceCapacity = 5000;
    for (uint32_t t = 0; t < 3000; ++t)
    {
        state.traceLog.push_back(
            {t, {'T', 'E', 'S', 'T'}, t * 3, 0, uint8_t(t % 2 == 0 ? 4 : 6)});
    }
    boot(std::move(state));
    bool overflowed = true;
    auto entries = traceLog(false, overflowed);
    ASSERT_EQ(entries.size(), 3000U);
    EXPECT_FALSE(overflowed);
    EXPECT_EQ(uint64_t{entries[2999].timestamp}, 2999U);
    EXPECT_EQ(uint32_t{entries[2999].data1}, 2999U * 3);
    EXPECT_EQ(entries[2].severity, 4);
    // The basic read has no severity: all read as 5.
    entries = traceLog(true, overflowed);
    ASSERT_EQ(entries.size(), 3000U);
    EXPECT_EQ(entries[2].severity, 5);
}

TEST_F(Device, FullTraceLogDropsTheOldestAndSaysSo)
{
    ErotState state;
    state.traceCapacity = 100;
    boot(std::move(state));
    for (uint32_t n = 0; n < 150; ++n)
    {
        ErotSetResetReason(n, &status);
        ErotARBCommit(&status); // logged by the device
    }
    bool overflowed = false;
    auto entries = traceLog(false, overflowed);
    EXPECT_EQ(entries.size(), 100U);
    EXPECT_TRUE(overflowed);
    EXPECT_EQ(std::memcmp(entries[0].tag, "ARBC", 4), 0);
}

} // namespace
} // namespace ubbsim::erot::test
