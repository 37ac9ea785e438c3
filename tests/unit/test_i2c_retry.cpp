#include "fakes/console_capture.hpp"
#include "fakes/fake_platform.hpp"
#include "logging/log_line.hpp"
#include "utils/i2c_ops.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using namespace ::testing;
using Kind = I2cOp::Kind;
namespace level = logging::level;

constexpr unsigned bus = 4;
constexpr uint8_t dev = 0x40;
constexpr uint8_t reg = 0x05;

class I2cRetryTest : public testing::Test
{
  protected:
    I2cRetryTest()
    {
        fake.i2c.addDevice(bus, dev);
    }

    ~I2cRetryTest() override
    {
        // Whatever the test did, no descriptor may outlive the call.
        EXPECT_EQ(fake.i2c.openDescriptors(), 0);
    }

    std::vector<ZellibCall> records() const
    {
        return fake.zellib.calls(ZellibCall::Kind::i2cLog);
    }

    // One write of a byte, then a read of one; the console text.
    std::string writeThenRead(bool expected, int retries = 3,
                              bool logFailure = true,
                              const std::string& label = "VR12 page")
    {
        return console([&] {
            EXPECT_EQ(WriteReadWithRetry(&event, retries, bus, dev, reg, 1,
                                         &out, 1, &in, logFailure, label),
                      expected);
        });
    }

    FakePlatform fake;
    int event = -1;
    uint8_t out = 0x11;
    uint8_t in = 0;
};

// Calls that can't be right touch nothing and leave event 0.
TEST_F(I2cRetryTest, ImproperCallsAreRefusedUntouched)
{
    uint8_t byte = 0;
    fake.i2c.addDevice(15, 0x7F);
    std::string text = console([&] {
        EXPECT_FALSE(WriteReadWithRetry(&event, 3, bus, dev, reg, 0, &byte, 0,
                                        nullptr, true, "x"));
        EXPECT_FALSE(WriteReadWithRetry(&event, 3, bus, dev, reg, 0, nullptr, 1,
                                        nullptr, true, "x"));
        EXPECT_FALSE(WriteReadWithRetry(&event, 3, 16, 0x7F, reg, 0, nullptr, 1,
                                        &byte, true, "x"));
        EXPECT_FALSE(WriteReadWithRetry(&event, 3, 15, 0x80, reg, 0, nullptr, 1,
                                        &byte, true, "x"));
    });
    EXPECT_EQ(event, 0);
    EXPECT_TRUE(fake.i2c.operations().empty());
    EXPECT_TRUE(records().empty());
    EXPECT_EQ(occurrences(text, "] Call the function - WriteReadWithRetry "
                                "improperly.\n"),
              2U);
    EXPECT_EQ(occurrences(text, "Parameter over range when call the "
                                "function - WriteReadWithRetry."),
              2U);
    // The highest bus and address are in range.
    EXPECT_TRUE(WriteReadWithRetry(&event, 3, 15, 0x7F, reg, 0, nullptr, 1,
                                   &byte, true, "x"));
}

TEST_F(I2cRetryTest, WriteThenReadTraffic)
{
    fake.i2c.setRegister(bus, dev, reg, 0x11);
    EXPECT_EQ(writeThenRead(true), "");
    EXPECT_EQ(event, 0);
    EXPECT_EQ(in, 0x11);
    std::vector<Kind> kinds;
    for (const I2cOp& op : fake.i2c.operations())
    {
        kinds.push_back(op.kind);
    }
    EXPECT_EQ(kinds, (std::vector<Kind>{Kind::open, Kind::setSlave, Kind::write,
                                        Kind::setSlave, Kind::smbusReadBlock,
                                        Kind::close}));
    EXPECT_EQ(fake.i2c.operations(Kind::write).at(0).bytes,
              (std::vector<uint8_t>{reg, 0x11}));

    // No parts at all only proves that the bus opens.
    fake.i2c.clearOperations();
    EXPECT_TRUE(WriteReadWithRetry(&event, 3, bus, dev, reg, 0, nullptr, 0,
                                   nullptr, true, "probe"));
    EXPECT_EQ(fake.i2c.operations().size(), 2); // open and close
}

TEST_F(I2cRetryTest, DeadDeviceIsReportedOnEveryAttempt)
{
    fake.i2c.removeDevice(bus, dev);
    std::string text = writeThenRead(false);
    EXPECT_EQ(event, 4);
    auto calls = records();
    ASSERT_EQ(calls.size(), 3);
    for (int i = 0; i < 3; ++i)
    {
        EXPECT_EQ(calls[i].message,
                  "VR12 page failure. Retry " + std::to_string(i + 1));
        EXPECT_EQ(calls[i].level, i < 2 ? level::WARNING : level::CRITICAL);
    }
    const I2CLogData& data = *calls[2].i2c;
    EXPECT_TRUE(calls[2].flag);
    EXPECT_TRUE(data.writeFailed);
    EXPECT_EQ(data.bus, bus);
    EXPECT_EQ(data.address, dev);
    EXPECT_EQ(data.reg, reg);
    EXPECT_EQ(data.writeLength, 1);
    EXPECT_EQ(data.writeBuffer, &out);
    EXPECT_EQ(data.readLength, 1);
    EXPECT_EQ(data.readBuffer, &in);
    // A retry starts over: open, address, and the write again.
    EXPECT_EQ(fake.i2c.openCount(), 3);
    EXPECT_EQ(fake.i2c.operations(Kind::write).size(), 3);
    EXPECT_TRUE(fake.i2c.operations(Kind::smbusReadBlock).empty());
    EXPECT_EQ(occurrences(text, "] Write 0x05 fail.\n"), 3U);

    // Without logging the retries stay, the records go; an empty label and
    // no retries still make one critical attempt.
    fake.zellib.clear();
    EXPECT_EQ(occurrences(writeThenRead(false, 3, false), "Write 0x05 fail."),
              3U);
    EXPECT_TRUE(records().empty());
    writeThenRead(false, 0, true, "");
    writeThenRead(false, -2, true, "");
    calls = records();
    ASSERT_EQ(calls.size(), 2);
    EXPECT_EQ(calls[0].message, " Retry 1");
    EXPECT_EQ(calls[0].level, level::CRITICAL);
    EXPECT_EQ(calls[1].level, level::CRITICAL);
    EXPECT_EQ(fake.i2c.openCount(), 3 + 3 + 2);
}

TEST_F(I2cRetryTest, EventNamesTheStepThatFailedLast)
{
    fake.i2c.inject({Kind::setSlave, bus, dev, EBUSY, std::nullopt, -1});
    writeThenRead(false);
    EXPECT_EQ(event, 2);
    EXPECT_TRUE(records().back().i2c->noAccess);

    fake.i2c.clearFaults();
    fake.i2c.inject({Kind::smbusReadBlock, bus, dev, EIO, std::nullopt, -1});
    EXPECT_THAT(writeThenRead(false), HasSubstr("] Read 0x05 fail.\n"));
    EXPECT_EQ(event, 5);
    EXPECT_TRUE(records().back().i2c->readFailed);

    // An open that fails still closes (fd -1, harmlessly) and reports.
    std::string text = console([&] {
        EXPECT_FALSE(WriteReadWithRetry(&event, 2, 9, dev, reg, 0, nullptr, 0,
                                        nullptr, true, "Mux"));
    });
    EXPECT_EQ(event, 1);
    EXPECT_TRUE(records().back().i2c->noAccess);
    EXPECT_EQ(records().back().i2c->bus, 9);
    EXPECT_EQ(fake.i2c.operations(Kind::close).back().result, -1);
    EXPECT_THAT(text, HasSubstr("] Fail to OpenChannel\n"));
}

TEST_F(I2cRetryTest, SecondAttemptSucceeds)
{
    fake.i2c.inject({Kind::write, bus, dev, EREMOTEIO, std::nullopt, 1});
    writeThenRead(true);
    EXPECT_EQ(event, 0);
    auto calls = records();
    ASSERT_EQ(calls.size(), 1);
    EXPECT_EQ(calls[0].level, level::WARNING);
    EXPECT_EQ(calls[0].message, "VR12 page failure. Retry 1");
}

} // namespace
} // namespace orvane::test
