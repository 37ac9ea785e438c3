// The paged reads (component information, trace log) and the certificate
// chain: continuation, format versions, limits, and results handed out
// only on success.
#include "scripted_device.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <gtest/gtest.h>

namespace erot::test
{
namespace
{

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
    EXPECT_EQ(uint64_t{log[2].timestamp}, 3U);
    EXPECT_EQ(std::string(log[0].tag, 4), "BPup");
    EXPECT_EQ(uint32_t{log[0].data1}, 0x11U);
    EXPECT_EQ(uint32_t{log[0].data2}, 0x22U);
    EXPECT_EQ(log[0].severity, 3);
    EXPECT_EQ(log[1].severity, 5);
    EXPECT_EQ(log[2].severity, 4);
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

} // namespace
} // namespace erot::test
