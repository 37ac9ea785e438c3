// The emulated eRoT through the client library as the daemon uses it:
// stored values, flash sides and resets, saved state, the paged reads,
// the faults of the device and its link, image verification, and the MCTP
// endpoint on a private bus.

#include "erot_harness.hpp"
#include "erotctl_commands.hpp"

#include "erot/fw_components.hpp"
#include "erot/image_signer.hpp"
#include "erot/image_verifier.hpp"
#include "erot/opcodes.hpp"
#include "erot/sha384.hpp"
#include "erot/signature_block.hpp"
#include "erot/state_json.hpp"
#include "fakes/bus_fixture.hpp"
#include "fakes/console_capture.hpp"
#include "neighbours/neighbours.hpp"

#include <openssl/x509.h>
#include <sdbus-c++/sdbus-c++.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <functional>
#include <nlohmann/json.hpp>

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

// Faults of the eRoT and its link, as the client library reports them.
using LinkFaults = ErotTest;

// A record list whose length disagrees with its count is only a warning;
// other malformed replies are protocol errors.
TEST_F(LinkFaults, MalformedReplies)
{
    bootWith({fault("shortReply", op::deviceId),
              fault("wrongLength", op::activeFlashConfigRead),
              fault("oversizedReply", op::getResetReason),
              fault("wrongLength", op::bprRead)});
    uint8_t id[49] = {};
    EXPECT_EQ(ErotGetDeviceId(id, sizeof(id), &status), -EPROTO);
    EXPECT_EQ(status, 0xEE) << "left unwritten";
    uint32_t active = 0;
    uint32_t pending = 0;
    bool update = false;
    EXPECT_EQ(ErotActiveFlashConfigRead(&active, &pending, &update, &status),
              -EPROTO);
    uint32_t reason = 0;
    EXPECT_EQ(ErotGetResetReason(&reason, &status), -EIO);
    EXPECT_EQ(status, 0xFF);
    EXPECT_EQ(bootPartitions().size(), 10U);
}

TEST_F(LinkFaults, UnexpectedFormatVersions)
{
    bootWith({fault("formatVersion", op::componentInfoV4, 3),
              fault("formatVersion", op::bprRead, 2),
              fault("formatVersion", op::traceLog, 1)});
    uint32_t count = 0;
    ComponentInfo* info = nullptr;
    EXPECT_EQ(ErotGetComponentInfoV4(&count, &info, &status), -EPROTO);
    BootPartitionRecord* records = nullptr;
    EXPECT_EQ(ErotBPRRead(&count, &records, &status), -EPROTONOSUPPORT);
    TraceLogEntry* entries = nullptr;
    bool overflowed = false;
    EXPECT_EQ(ErotGetTraceLog(&count, &entries, &overflowed, &status), -EPROTO);
}

// A refusal can be meant for one component's verification only.
TEST_F(LinkFaults, GivenStatusForOneComponent)
{
    ErotFault refuse = fault("status", op::imageVerify, 0x81);
    refuse.component = "IFWI";
    bootWith({refuse});
    EXPECT_EQ(verify(0, "ifwi"), 0x81);
    EXPECT_EQ(verify(0, "vr"), 0);
}

TEST_F(LinkFaults, ReportedStateFaults)
{
    ErotFault failed = fault("secureBootFailed");
    failed.component = "SMC";
    failed.side = 0;
    ErotFault missing = fault("missingBpr", -1, 0, 1);
    missing.component = "SMC_FPGA";
    bootWith({failed, missing});
    auto info = componentInfo();
    for (size_t n = 0; n < info.size(); ++n)
    {
        bool smcA = info[n].componentId == 0x0200 && n % 2 == 0;
        EXPECT_EQ(info[n].secureBootStatus, smcA ? 0 : 1) << n;
    }
    auto hasFpgaRecord = [&] {
        auto records = bootPartitions();
        return std::any_of(records.begin(), records.end(), [](const auto& r) {
            return r.componentId == 0x0300;
        });
    };
    EXPECT_FALSE(hasFpgaRecord());
    EXPECT_TRUE(hasFpgaRecord()) << "missing for one read only";
}

// A dead link fails every attempt; once it is back the command works. The
// device acts on a request whose reply is lost: the retry acts again.
TEST_F(LinkFaults, DeadLinkAndLostReplies)
{
    ErotFault dead = fault("deadLink");
    dead.until = 2.0;
    bootWith({dead, fault("lostReplies", op::arbCommit, 0, 2)});
    bool enabled = false;
    EXPECT_EQ(ErotGetAutoARBCommit(&enabled, &status), -EIO);
    EXPECT_EQ(endpoint->exchanges().size(), 5U);
    now += 2s;
    EXPECT_EQ(ErotGetAutoARBCommit(&enabled, &status), 0);
    ASSERT_EQ(ErotARBCommit(&status), 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(traces("ARBC").size(), 3U);
    auto log = endpoint->exchanges();
    ASSERT_EQ(log.size(), 9U);
    EXPECT_EQ(log[6].delivery, Delivery::Kind::lost);
    EXPECT_EQ(log[6].fault, "lostReplies");
    EXPECT_EQ(log[8].delivery, Delivery::Kind::reply);
}

// Image verification with real signatures: what passes, what doesn't and
// how anti-rollback moves the line.
using Kind = ErotImageMark::Kind;

constexpr uint8_t refused = status::verifyFailed;

class Verification : public ErotTest
{
  protected:
    SignedImage ubbFpga(uint32_t svn)
    {
        AhdrFields fields;
        fields.componentId = 0x0400;
        fields.version = 0x02000000 + svn;
        fields.svn = svn;
        return signImage(fields, generatedPayload(0x0400, svn, 4096),
                         keys().trusted, trustedKeyIndex);
    }

    // The status of verifying `ahdr` for `component` with a given hash.
    int verifyAs(uint16_t component, const Digest& hash, const uint8_t* ahdr)
    {
        EXPECT_EQ(::erot::ErotImageVerify(0, component, hash.data(), ahdrSize,
                                          ahdr, &status),
                  0);
        return status;
    }
};

TEST_F(Verification, EverySignedPairOfAHealthyBoardPasses)
{
    ErotScenario dual;
    dual.dualRetimers = true;
    boot(dual);
    for (const FwComponent& component : fwComponents)
    {
        if (!component.hasAhdr || component.id == retimerId)
        {
            continue;
        }
        EXPECT_EQ(verify(0, std::string(component.stem)), 0) << component.name;
        EXPECT_EQ(verify(1, std::string(component.stem)), 0) << component.name;
    }
    EXPECT_TRUE(traces("IVFL").empty());
}

// Each spoilt image is refused for its own reason, which the trace log
// keeps; the other side of the same component still passes.
TEST_F(Verification, SpoiltImagesAreRefusedWithTheirReason)
{
    ErotScenario scenario;
    scenario.images = {{"IFWI", 0, Kind::tampered},
                       {"VR", 1, Kind::revokedKey},
                       {"RM", 0, Kind::unknownKey},
                       {"UBB_FPGA", 0, Kind::lowSvn}};
    boot(scenario);
    EXPECT_EQ(verify(0, "ifwi"), refused);
    EXPECT_EQ(verify(1, "vr"), refused);
    EXPECT_EQ(verify(0, "rm"), refused);
    EXPECT_EQ(verify(0, "ubb-fpga"), refused);
    EXPECT_EQ(verify(1, "ifwi"), 0);
    EXPECT_EQ(verify(0, "vr"), 0);
    auto failed = traces("IVFL");
    ASSERT_EQ(failed.size(), 4U);
    EXPECT_EQ(failed[0].data2, static_cast<uint32_t>(Verdict::digestMismatch));
    EXPECT_EQ(failed[1].data2, static_cast<uint32_t>(Verdict::revokedKey));
    EXPECT_EQ(failed[2].data2, static_cast<uint32_t>(Verdict::unknownKey));
    EXPECT_EQ(failed[3].data2, static_cast<uint32_t>(Verdict::rollback));
    EXPECT_EQ(failed[0].severity, 4);
}

// Every forgery that a check of fewer bytes would let through is refused
// for its own reason; the reason travels in the trace log.
TEST_F(Verification, EachForgeryIsRefusedForItsOwnReason)
{
    boot();
    constexpr size_t block = signatureBlockOffset;
    struct Forgery
    {
        const char* what;
        std::function<void(SignedImage&)> spoil;
        Verdict reason;
    };
    auto flip = [](size_t at) {
        return [at](SignedImage& image) { image.ahdr[at] ^= 1; };
    };
    const std::vector<Forgery> forgeries = {
        {"image changed, digest rewritten to match",
         [](SignedImage& image) {
             image.payload[7] ^= 1;
             Digest digest = sha384(image.payload);
             std::copy(digest.begin(), digest.end(),
                       image.ahdr.begin() + block + 4);
         },
         Verdict::badSignature},
        {"r corrupted", flip(block + 60), Verdict::badSignature},
        {"s corrupted", flip(block + 120), Verdict::badSignature},
        {"SVN changed", flip(16), Verdict::badSignature},
        {"details edited", flip(40), Verdict::badSignature},
        {"full size edited", flip(29), Verdict::badSignature},
        {"verifiable size edited", flip(33), Verdict::badSignature},
        {"format changed", flip(block), Verdict::badFormat},
        {"reserved before the digest", flip(block + 2), Verdict::reservedSet},
        {"reserved after the signature", flip(ahdrSize - 1),
         Verdict::reservedSet},
        {"header names another key, signed anyway",
         [](SignedImage& image) {
             image.ahdr[20] = 3;
             signAhdr(image.ahdr, image.digest, keys().trusted, 0);
         },
         Verdict::keyMismatch},
    };
    SignedImage signedOne = ubbFpga(1);
    ASSERT_EQ(verify(signedOne), 0);
    for (const Forgery& forgery : forgeries)
    {
        SignedImage image = signedOne;
        forgery.spoil(image);
        size_t before = traces("IVFL").size();
        EXPECT_EQ(verify(image), refused) << forgery.what;
        auto failed = traces("IVFL");
        ASSERT_EQ(failed.size(), before + 1) << forgery.what;
        EXPECT_EQ(verdictName(static_cast<Verdict>(failed.back().data2)),
                  verdictName(forgery.reason))
            << forgery.what;
    }
    // Another component than the header's; the bundle's header covers no
    // image, so it passes with no hash while any other image needs its own.
    EXPECT_EQ(
        verifyAs(0x0500, sha384(signedOne.payload), signedOne.ahdr.data()),
        refused);
    EXPECT_EQ(traces("IVFL").back().data2,
              static_cast<uint32_t>(Verdict::wrongComponent));
    EXPECT_EQ(verify(0, "fwbundle"), 0);
    EXPECT_EQ(verifyAs(0x0500, Digest{}, file(0, "ifwi.ahdr").data()), refused);
    EXPECT_EQ(traces("IVFL").back().data2,
              static_cast<uint32_t>(Verdict::digestMismatch));
}

// An explicit commit raises the minimum to the running SVN; boot success
// commits only at stage 0 with automatic commit on.
TEST_F(Verification, CommitRaisesTheMinimumToTheRunningSvn)
{
    ErotScenario scenario;
    scenario.components["UBB_FPGA"].svn = 2;
    boot(scenario);
    EXPECT_EQ(verify(ubbFpga(1)), 0);
    ASSERT_EQ(::erot::ErotARBCommit(&status), 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(verify(ubbFpga(1)), refused);
    EXPECT_EQ(verify(ubbFpga(2)), 0);
    EXPECT_EQ(verify(0, "ubb-fpga"), 0);
    boot(scenario);
    ASSERT_EQ(::erot::ErotSignalBootSuccess(0, &status), 0);
    EXPECT_EQ(verify(ubbFpga(1)), 0) << "auto commit is off";
    ASSERT_EQ(::erot::ErotSetAutoARBCommit(1, &status), 0);
    ASSERT_EQ(::erot::ErotSignalBootSuccess(1, &status), 0);
    EXPECT_EQ(verify(ubbFpga(1)), 0) << "commit deferred";
    ASSERT_EQ(::erot::ErotSignalBootSuccess(0, &status), 0);
    EXPECT_EQ(verify(ubbFpga(1)), refused);
}

// The MCTP endpoint of the virtual board on a private bus, reached by erotctl
// through the client library and by calls that are wrongly addressed.
using orvane::test::console;

class MctpBus : public ErotTest
{
  protected:
    void serve(std::vector<ErotFault> faults)
    {
        bootWith(std::move(faults));
        ::erot::ErotSetTransport(nullptr); // the bus transport
        neighbours = std::make_unique<Neighbours>(
            Scenario{},
            [this](uint8_t address, uint8_t eid, uint16_t timeoutMs,
                   const std::vector<uint8_t>& request)
                -> std::optional<std::vector<uint8_t>> {
                Delivery delivery =
                    endpoint->exchange({address, eid, timeoutMs}, request);
                if (delivery.kind == Delivery::Kind::linkDown ||
                    delivery.kind == Delivery::Kind::rejected)
                {
                    return std::nullopt;
                }
                return delivery.frame;
            });
        neighbours->start();
    }
    void TearDown() override
    {
        neighbours.reset();
    }

    // erotctl as run from a shell; the library's retry lines are not part
    // of its report.
    erotctl::Outcome quietly(const std::vector<std::string>& words)
    {
        erotctl::Outcome outcome;
        console([&] { outcome = erotctl::run(words); });
        return outcome;
    }

    orvane::test::PrivateBus bus;
    std::unique_ptr<Neighbours> neighbours;
};

// A call to another address or endpoint, with another time-out than the
// commands', or with a frame that isn't the vendor's, gets no answer: the
// call fails and the device never sees the request.
TEST_F(MctpBus, WronglyAddressedOrFramedCallsGetNoAnswer)
{
    serve({});
    struct Call
    {
        uint8_t address, eid;
        uint16_t timeoutMs;
        size_t at; // the frame byte set to `value`; 8 cuts the frame short
        uint8_t value;
        std::string rejected;
    };
    const std::vector<Call> calls = {
        {100, 0x94, 6000, 7, 0x32, ""},
        {99, 0x94, 6000, 7, 0x32, "address 99"},
        {100, 0x95, 6000, 7, 0x32, "eid 0x95"},
        {100, 0x94, 25000, 7, 0x32, "timeout 25000"},
        {100, 0x94, 6000, 0, 0x7E, "frame byte 0 0x7e"},
        {100, 0x94, 6000, 3, 0x2C, "frame byte 3 0x2c"},
        {100, 0x94, 6000, 6, 0x01, "frame byte 6 0x01"},
        {100, 0x94, 6000, 8, 0, "frame of 7 bytes"},
    };
    auto connection = sdbus::createSystemBusConnection();
    auto proxy =
        sdbus::createProxy(*connection, "xyz.openbmc_project.MCTP.SMBus15",
                           "/xyz/openbmc_project/mctp");
    for (const Call& call : calls)
    {
        std::vector<uint8_t> frame = {0x7F, 0, 0, 0x5B, 0x2C, 0, 0, 0x32};
        call.at < 8 ? void(frame[call.at] = call.value) : frame.pop_back();
        bool answered = true;
        try
        {
            proxy->callMethod("MctpSendRecv")
                .onInterface("xyz.openbmc_project.MCTP.Endpoint")
                .withArguments(call.address, call.eid, call.timeoutMs, frame)
                .storeResultsTo(frame);
        }
        catch (const sdbus::Error&)
        {
            answered = false;
        }
        EXPECT_EQ(answered, call.rejected.empty()) << call.rejected;
        EXPECT_EQ(endpoint->exchanges().back().fault, call.rejected);
    }
}

// Every read is answered and decoded, as text and as JSON.
TEST_F(MctpBus, ErotctlReadsEveryCommandFromTheBoard)
{
    serve({});
    // clang-format off
    const std::vector<std::vector<std::string>> reads = {
        {"active-flash"}, {"bpr"}, {"bkc-manifest"}, {"security-settings"},
        {"component-info", "--version", "2"}, {"component-info", "--version", "3"},
        {"component-info", "--version", "4"}, {"persist"}, {"auto-arb"},
        {"trace-log"}, {"trace-log", "--basic"}, {"health"}, {"reset-reason"},
        {"device-id"}, {"identity-hex"}, {"key-revoke-bits"}, {"svn-revoke-bits"},
        {"cert-chain"}, {"token-read"}, {"record-get"}};
    // clang-format on
    for (auto words : reads)
    {
        std::string name = words[0];
        erotctl::Outcome outcome = quietly(words);
        EXPECT_EQ(outcome.exitCode, 0) << name << ": " << outcome.err;
        EXPECT_FALSE(outcome.out.empty()) << name;
        words.push_back("--json");
        outcome = quietly(words);
        EXPECT_EQ(outcome.exitCode, 0) << name << ": " << outcome.err;
        EXPECT_TRUE(nlohmann::json::accept(outcome.out))
            << name << ": " << outcome.out;
    }
    // Every entry of the board's table arrives, across pages.
    auto info = nlohmann::json::parse(
        quietly({"component-info", "--version", "4", "--json"}).out);
    EXPECT_EQ(info["count"], 20);
    EXPECT_EQ(info["components"].size(), 20U);
}

} // namespace
} // namespace ubbsim::erot::test
