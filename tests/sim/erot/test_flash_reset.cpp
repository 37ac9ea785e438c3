// Selecting a side and resetting the SMC: what the next boot sees.

#include "erot_harness.hpp"

#include "erot/state_json.hpp"

#include <chrono>

#include <gtest/gtest.h>

namespace ubbsim::erot::test
{
namespace
{

using namespace std::chrono_literals;

struct FlashConfig
{
    uint32_t active = 9;
    uint32_t pending = 9;
    bool update = false;
};

FlashConfig readConfig()
{
    FlashConfig config;
    uint8_t status = 0xEE;
    EXPECT_EQ(::erot::ErotActiveFlashConfigRead(&config.active, &config.pending,
                                                &config.update, &status),
              0);
    EXPECT_EQ(status, 0);
    return config;
}

std::vector<::erot::ComponentInfo> componentInfo()
{
    uint32_t count = 0;
    ::erot::ComponentInfo* raw = nullptr;
    uint8_t status = 0;
    EXPECT_EQ(::erot::ErotGetComponentInfoV4(&count, &raw, &status), 0);
    ::erot::Owned<::erot::ComponentInfo> owned(raw);
    return {raw, raw + count};
}

using FlashReset = ErotTest;

TEST_F(FlashReset, SelectedSideBootsAfterTheResetThatTheDeviceAsksFor)
{
    boot();
    uint8_t status = 0xEE;
    uint8_t persist[16] = {0x0C}; // secure boot finished, copy completed
    ASSERT_EQ(::erot::ErotSMCPersistSet(persist, sizeof(persist), &status), 0);
    ASSERT_EQ(::erot::ErotSelectActiveFlash(1, 1, &status), 0);
    FlashConfig staged = readConfig();
    EXPECT_EQ(staged.active, 0U);
    EXPECT_EQ(staged.pending, 1U);
    EXPECT_TRUE(staged.update);

    ASSERT_EQ(::erot::ErotSetResetReason(3, &status), 0);
    ASSERT_EQ(::erot::ErotSystemReset(1, &status), 0);
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(endpoint->resetDue()) << "the reply goes out first";
    now += 100ms;
    EXPECT_TRUE(endpoint->resetDue());
    EXPECT_FALSE(endpoint->resetDue()) << "once";
    endpoint->smcReset();

    FlashConfig booted = readConfig();
    EXPECT_EQ(booted.active, 1U);
    EXPECT_TRUE(booted.update) << "until the SMC clears it";
    uint32_t reason = 0;
    ASSERT_EQ(::erot::ErotGetResetReason(&reason, &status), 0);
    EXPECT_EQ(reason, 3U);
    uint16_t length = 0;
    ASSERT_EQ(
        ::erot::ErotSMCPersistGet(persist, sizeof(persist), &length, &status),
        0);
    EXPECT_EQ(persist[0], 0x04) << "the new side has not been copied";

    auto entries = componentInfo();
    EXPECT_EQ(entries[0].active, 0) << "side A of the first component";
    EXPECT_EQ(entries[1].active, 1);

    ASSERT_EQ(::erot::ErotSelectActiveFlash(1, 0, &status), 0);
    EXPECT_FALSE(readConfig().update);
}

// A component whose record names its own side stays there when the SMC
// flips; the others follow the SMC.
TEST_F(FlashReset, BootPartitionRecordsFollowTheSmcUnlessPinned)
{
    ErotScenario scenario;
    scenario.components["UBB_FPGA"].bootSide = 0;
    boot(scenario);
    uint8_t status = 0;
    ASSERT_EQ(::erot::ErotSelectActiveFlash(1, 0, &status), 0);
    endpoint->smcReset();
    uint32_t count = 0;
    ::erot::BootPartitionRecord* raw = nullptr;
    ASSERT_EQ(::erot::ErotBPRRead(&count, &raw, &status), 0);
    ::erot::Owned<::erot::BootPartitionRecord> records(raw);
    for (uint32_t n = 0; n < count; ++n)
    {
        EXPECT_EQ(raw[n].side, raw[n].componentId == 0x0400 ? 0 : 1)
            << std::hex << raw[n].componentId;
    }
}

TEST_F(FlashReset, BootSuccessEndsTheFpgaRecoveryMark)
{
    boot();
    uint8_t status = 0;
    uint8_t persist[16] = {0, 0, 0, 0, 1};
    ASSERT_EQ(::erot::ErotSMCPersistSet(persist, sizeof(persist), &status), 0);
    ASSERT_EQ(::erot::ErotSignalBootSuccess(1, &status), 0);
    uint16_t length = 0;
    ASSERT_EQ(
        ::erot::ErotSMCPersistGet(persist, sizeof(persist), &length, &status),
        0);
    EXPECT_EQ(persist[4], 0);
}

// What a run saves is what the next one loads, field for field.
TEST_F(FlashReset, SavedStateLoadsAsItWas)
{
    ErotScenario scenario;
    scenario.traceLog = {{"BPup", 1, 2, 3}};
    boot(scenario);
    uint8_t status = 0;
    std::vector<uint8_t> token(::erot::tokenSize, 7);
    ::erot::ErotTokenInstall(token.data(), token.size(), &status);
    ::erot::ErotSelectActiveFlash(1, 1, &status);
    ErotState state = endpoint->state();
    state.record = std::array<uint8_t, 48>{9};
    nlohmann::json saved = stateToJson(state);
    EXPECT_EQ(stateToJson(stateFromJson(saved)), saved);
}

} // namespace
} // namespace ubbsim::erot::test
