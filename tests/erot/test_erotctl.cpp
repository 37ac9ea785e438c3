// erotctl against a scripted device: the decodings that are easy to get
// wrong, the write guard, and what the exit code says.
#include "erotctl_commands.hpp"
#include "scripted_device.hpp"

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace erot::test
{
namespace
{

using ::testing::HasSubstr;
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
