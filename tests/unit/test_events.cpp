#include "fakes/fake_platform.hpp"
#include "logging/events.hpp"
#include "logging/log_line.hpp"

#include <gtest/gtest.h>

namespace orvane::logging
{
namespace
{

using test::ZellibCall;

class EventsTest : public ::testing::Test
{
  protected:
    test::FakePlatform fake;
};

TEST_F(EventsTest, I2cRecordFlagsFollowTheCode)
{
    uint8_t write[2] = {0x4E, 0x01};
    uint8_t read = 0;
    struct Case
    {
        int code;
        bool noAccess, readFailed, writeFailed, other;
    };
    for (Case c : {Case{1, true, false, false, false},
                   Case{2, true, false, false, false},
                   Case{4, false, false, true, false},
                   Case{5, false, true, false, false},
                   Case{6, false, false, false, true}})
    {
        fake.zellib.clear();
        EXPECT_EQ(AddI2CEvent(c.code, level::WARNING, "msg", true, 3, 0x56,
                              0xF2, 2, write, 1, &read),
                  0);
        auto calls = fake.zellib.calls(ZellibCall::Kind::i2cLog);
        ASSERT_EQ(calls.size(), 1U) << c.code;
        const I2CLogData& r = *calls[0].i2c;
        EXPECT_EQ(r.noAccess, c.noAccess) << c.code;
        EXPECT_EQ(r.readFailed, c.readFailed) << c.code;
        EXPECT_EQ(r.writeFailed, c.writeFailed) << c.code;
        EXPECT_EQ(r.otherFailure, c.other) << c.code;
        EXPECT_EQ(r.bus, 3);
        EXPECT_EQ(r.address, 0x56);
        EXPECT_EQ(r.reg, 0xF2);
        EXPECT_EQ(r.writeLength, 2U);
        EXPECT_EQ(r.readLength, 1U);
        EXPECT_EQ(r.writeBuffer, write);
        EXPECT_EQ(r.readBuffer, &read);
        EXPECT_EQ(r.message, "msg");
        EXPECT_EQ(calls[0].level, level::WARNING);
        EXPECT_TRUE(calls[0].flag);
    }
}

TEST_F(EventsTest, I2cCodesWithoutRecordReachNoLibrary)
{
    for (int code : {0, 3, 7, -1})
    {
        ::testing::internal::CaptureStderr();
        EXPECT_EQ(
            AddI2CEvent(code, 2, "m", false, 0, 0, 0, 0, nullptr, 0, nullptr),
            -1);
        EXPECT_EQ(::testing::internal::GetCapturedStderr(),
                  "Undefined I2C_Event code\n");
    }
    EXPECT_TRUE(fake.zellib.calls().empty());
}

TEST_F(EventsTest, PowerTransitionMakesFourCallsInOrder)
{
    LogPowerTransition(false, true);
    auto calls = fake.zellib.calls();
    ASSERT_EQ(calls.size(), 4U);
    const char* id = "ResourceEvent.1.2.1.ResourcePoweringOff";
    EXPECT_EQ(calls[0].kind, ZellibCall::Kind::nvLog);
    EXPECT_EQ(calls[0].message, "Power Sequence: UBB StandBy Power Off");
    EXPECT_EQ(calls[0].arg1, "UBB standby");
    EXPECT_EQ(calls[1].kind, ZellibCall::Kind::nvLog);
    EXPECT_EQ(calls[1].message, "Power Sequence: OAM StandBy Power Off");
    EXPECT_EQ(calls[1].arg1, "OAM standby");
    EXPECT_EQ(calls[2].kind, ZellibCall::Kind::log);
    EXPECT_EQ(calls[2].arg1, "UBB standby");
    EXPECT_EQ(calls[3].kind, ZellibCall::Kind::log);
    EXPECT_EQ(calls[3].arg1, "OAM standby");
    for (const auto& call : calls)
    {
        EXPECT_EQ(call.messageId, id);
        EXPECT_EQ(call.level, level::INFO);
        EXPECT_EQ(call.arg2, "");
        EXPECT_EQ(call.arg3, "");
    }

    fake.zellib.clear();
    LogPowerTransition(true, false);
    calls = fake.zellib.calls();
    ASSERT_EQ(calls.size(), 4U);
    EXPECT_EQ(calls[0].messageId, "ResourceEvent.1.2.1.ResourcePoweringOn");
    EXPECT_EQ(calls[0].message, "Power Sequence: UBB Base Power On");
    EXPECT_EQ(calls[1].arg1, "OAM base");
}

TEST_F(EventsTest, PowerCriticalDumpsThenOneNonVolatileEntry)
{
    fake.zellib.dumpPath = "/var/dump/7";
    ReportPowerCritical(false, "OAM_3 module power good");
    auto calls = fake.zellib.calls();
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_EQ(calls[0].kind, ZellibCall::Kind::dump);
    EXPECT_EQ(calls[0].arg1, "OAMPowerStatus");
    EXPECT_EQ(calls[0].arg2, "Critical");
    EXPECT_EQ(calls[0].arg3, "OAM_3 module power good");
    EXPECT_EQ(calls[1].kind, ZellibCall::Kind::nvLog);
    EXPECT_EQ(calls[1].level, level::CRITICAL);
    EXPECT_EQ(calls[1].messageId, "OAMPowerStatusCritical");
    EXPECT_EQ(calls[1].message, "Power Sequence: OAM power OAM_3 module power "
                                "good goes down or status critical fault.");
    EXPECT_EQ(calls[1].arg1, "OAM_3 module power good");
    EXPECT_EQ(calls[1].arg2, "");
    EXPECT_EQ(calls[1].arg3, "/var/dump/7");
}

TEST_F(EventsTest, LogDumpFailureIsToldAndPathStillReturned)
{
    fake.zellib.dumpCode = 5;
    fake.zellib.dumpPath = "/p";
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(TriggerLogDump("a", "b", "c", 1.5), "/p");
    std::string out = ::testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("[WARNING \"events.cpp\":"), std::string::npos);
    EXPECT_NE(out.find("orvane tigger log dump fail. code: 5"),
              std::string::npos);
}

TEST_F(EventsTest, HexStringIsUpperCaseUnpadded)
{
    EXPECT_EQ(ToHexString(0x61), "0x61");
    EXPECT_EQ(ToHexString(255), "0xFF");
    EXPECT_EQ(ToHexString(0), "0x0");
    EXPECT_EQ(ToHexString(0xABCDEF01), "0xABCDEF01");
}

} // namespace
} // namespace orvane::logging
