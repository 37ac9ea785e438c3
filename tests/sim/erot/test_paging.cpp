// The paged reads: many pages, the client's limits, and the trace log's
// overflow.

#include "erot_harness.hpp"

#include <cstring>

#include <gtest/gtest.h>

namespace ubbsim::erot::test
{
namespace
{

ErotState withComponents(size_t count)
{
    ErotState state;
    for (size_t n = 0; n < count; ++n)
    {
        ComponentState component;
        component.id = static_cast<uint16_t>(0x1000 + n);
        component.sides[0].version = static_cast<uint32_t>(n);
        component.sides[1].version = static_cast<uint32_t>(n);
        component.sides[1].secureBootStatus = 0;
        state.components.push_back(component);
    }
    state.componentInfoPage = 7;
    return state;
}

TraceRecord record(uint64_t timestamp, uint8_t severity = 5)
{
    TraceRecord entry;
    entry.timestamp = timestamp;
    std::memcpy(entry.tag.data(), "TEST", 4);
    entry.data1 = static_cast<uint32_t>(timestamp * 3);
    entry.severity = severity;
    return entry;
}

using Paging = ErotTest;

// 50 components on two sides fill the client's 100 slots over 15 pages.
TEST_F(Paging, ComponentInfoOfAHundredEntriesInEveryFormat)
{
    boot(withComponents(50));
    for (uint8_t version : {4, 3, 2})
    {
        uint32_t count = 0;
        ::erot::ComponentInfo* raw = nullptr;
        uint8_t status = 0xEE;
        ASSERT_EQ(::erot::ErotGetComponentInfo(version, &count, &raw, &status),
                  0)
            << int{version};
        ::erot::Owned<::erot::ComponentInfo> entries(raw);
        ASSERT_EQ(count, 100U);
        EXPECT_EQ(uint16_t{raw[99].componentId}, 0x1000 + 49);
        EXPECT_EQ(uint32_t{raw[99].version}, 49U);
        // Version 2 entries end before the active flag.
        EXPECT_EQ(raw[98].active, version > 2 ? 1 : 0);
        EXPECT_EQ(raw[99].active, 0);
    }
}

TEST_F(Paging, OneComponentTooManyIsRefusedByTheClient)
{
    boot(withComponents(51));
    uint32_t count = 7;
    ::erot::ComponentInfo* raw = nullptr;
    uint8_t status = 0;
    EXPECT_EQ(::erot::ErotGetComponentInfoV4(&count, &raw, &status), -EPROTO);
    EXPECT_EQ(count, 7U);
}

TEST_F(Paging, LongTraceLogArrivesWholeAndInOrder)
{
    ErotState state;
    state.traceCapacity = 5000;
    for (uint64_t t = 0; t < 3000; ++t)
    {
        state.traceLog.push_back(record(t, t % 2 == 0 ? 4 : 6));
    }
    boot(std::move(state));
    uint32_t count = 0;
    ::erot::TraceLogEntry* raw = nullptr;
    bool overflowed = true;
    uint8_t status = 0xEE;
    ASSERT_EQ(::erot::ErotGetTraceLog(&count, &raw, &overflowed, &status), 0);
    ::erot::Owned<::erot::TraceLogEntry> entries(raw);
    ASSERT_EQ(count, 3000U);
    EXPECT_FALSE(overflowed);
    EXPECT_EQ(uint64_t{raw[2999].timestamp}, 2999U);
    EXPECT_EQ(uint32_t{raw[2999].data1}, 2999U * 3);
    EXPECT_EQ(raw[2].severity, 4);
    EXPECT_EQ(raw[1].severity, 5) << "6 reads as 5";

    // The basic read has no severity: all read as 5.
    ASSERT_EQ(::erot::ErotGetTraceLogBasic(&count, &raw, &overflowed, &status),
              0);
    ::erot::Owned<::erot::TraceLogEntry> basic(raw);
    ASSERT_EQ(count, 3000U);
    EXPECT_EQ(raw[2].severity, 5);
}

TEST_F(Paging, FullTraceLogDropsTheOldestAndSaysSo)
{
    ErotState state;
    state.traceCapacity = 100;
    boot(std::move(state));
    uint8_t status = 0;
    for (int n = 0; n < 150; ++n)
    {
        ::erot::ErotSetResetReason(static_cast<uint32_t>(n), &status);
        ::erot::ErotARBCommit(&status); // logged by the device
    }
    uint32_t count = 0;
    ::erot::TraceLogEntry* raw = nullptr;
    bool overflowed = false;
    ASSERT_EQ(::erot::ErotGetTraceLog(&count, &raw, &overflowed, &status), 0);
    ::erot::Owned<::erot::TraceLogEntry> entries(raw);
    EXPECT_EQ(count, 100U);
    EXPECT_TRUE(overflowed);
    EXPECT_EQ(std::memcmp(raw[0].tag, "ARBC", 4), 0);
}

} // namespace
} // namespace ubbsim::erot::test
