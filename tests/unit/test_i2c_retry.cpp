#include "fakes/fake_platform.hpp"
#include "logging/log_line.hpp"
#include "utils/i2c_ops.hpp"

#include <iostream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using testing::HasSubstr;
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
        testing::internal::CaptureStdout();
    }

    ~I2cRetryTest() override
    {
        // Whatever the test did, no descriptor may outlive the call.
        EXPECT_EQ(fake.i2c.openDescriptors(), 0);
        if (!captured)
        {
            output();
        }
    }

    std::string output()
    {
        captured = true;
        std::string text = testing::internal::GetCapturedStdout();
        // Failure messages went into the capture too: show them.
        if (HasFailure())
        {
            std::cerr << text;
        }
        return text;
    }

    std::vector<ZellibCall> records() const
    {
        return fake.zellib.calls(ZellibCall::Kind::i2cLog);
    }

    bool writeThenRead(int retries, bool logFailure = true,
                       const std::string& label = "VR12 page")
    {
        return WriteReadWithRetry(&event, retries, bus, dev, reg, 1, &out, 1,
                                  &in, logFailure, label);
    }

    FakePlatform fake;
    int event = -1;
    uint8_t out = 0x11;
    uint8_t in = 0;
    bool captured = false;
};

TEST_F(I2cRetryTest, MismatchedBufferAndLengthIsRefusedUntouched)
{
    uint8_t byte = 0;
    EXPECT_FALSE(WriteReadWithRetry(&event, 3, bus, dev, reg, 0, &byte, 0,
                                    nullptr, true, "x"));
    EXPECT_EQ(event, 0);
    event = -1;
    EXPECT_FALSE(WriteReadWithRetry(&event, 3, bus, dev, reg, 0, nullptr, 1,
                                    nullptr, true, "x"));
    EXPECT_EQ(event, 0);
    EXPECT_TRUE(fake.i2c.operations().empty());
    EXPECT_TRUE(records().empty());
    EXPECT_THAT(output(), HasSubstr("] Call the function - WriteReadWithRetry "
                                    "improperly.\n"));
}

TEST_F(I2cRetryTest, RangeCheckOfBusAndAddress)
{
    uint8_t byte = 0;
    fake.i2c.addDevice(15, 0x7F);
    EXPECT_TRUE(WriteReadWithRetry(&event, 3, 15, 0x7F, reg, 0, nullptr, 1,
                                   &byte, true, "x"));
    fake.i2c.clearOperations();
    event = -1;
    EXPECT_FALSE(WriteReadWithRetry(&event, 3, 16, 0x7F, reg, 0, nullptr, 1,
                                    &byte, true, "x"));
    EXPECT_FALSE(WriteReadWithRetry(&event, 3, 15, 0x80, reg, 0, nullptr, 1,
                                    &byte, true, "x"));
    EXPECT_EQ(event, 0);
    EXPECT_TRUE(fake.i2c.operations().empty());
    EXPECT_TRUE(records().empty());
    EXPECT_THAT(output(), HasSubstr("Parameter over range when call the "
                                    "function - WriteReadWithRetry."));
}

TEST_F(I2cRetryTest, WriteThenReadTraffic)
{
    fake.i2c.setRegister(bus, dev, reg, 0x11);
    EXPECT_TRUE(writeThenRead(3));
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
    EXPECT_EQ(output(), "");
}

TEST_F(I2cRetryTest, DeadDeviceIsReportedOnEveryAttempt)
{
    fake.i2c.removeDevice(bus, dev);
    EXPECT_FALSE(writeThenRead(3));
    EXPECT_EQ(event, 4);
    auto calls = records();
    ASSERT_EQ(calls.size(), 3);
    EXPECT_EQ(calls[0].message, "VR12 page failure. Retry 1");
    EXPECT_EQ(calls[1].message, "VR12 page failure. Retry 2");
    EXPECT_EQ(calls[2].message, "VR12 page failure. Retry 3");
    EXPECT_EQ(calls[0].level, level::WARNING);
    EXPECT_EQ(calls[1].level, level::WARNING);
    EXPECT_EQ(calls[2].level, level::CRITICAL);
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
    std::string text = output();
    EXPECT_THAT(text, HasSubstr("] Write 0x05 fail.\n"));
}

TEST_F(I2cRetryTest, EventNamesTheStepThatFailedLast)
{
    fake.i2c.inject({Kind::setSlave, bus, dev, EBUSY, std::nullopt, -1});
    EXPECT_FALSE(writeThenRead(3));
    EXPECT_EQ(event, 2);
    EXPECT_TRUE(records().back().i2c->noAccess);

    fake.i2c.clearFaults();
    fake.i2c.inject({Kind::smbusReadBlock, bus, dev, EIO, std::nullopt, -1});
    EXPECT_FALSE(writeThenRead(3));
    EXPECT_EQ(event, 5);
    EXPECT_TRUE(records().back().i2c->readFailed);
    EXPECT_THAT(output(), HasSubstr("] Read 0x05 fail.\n"));
}

TEST_F(I2cRetryTest, SecondAttemptSucceeds)
{
    fake.i2c.inject({Kind::write, bus, dev, EREMOTEIO, std::nullopt, 1});
    EXPECT_TRUE(writeThenRead(3));
    EXPECT_EQ(event, 0);
    auto calls = records();
    ASSERT_EQ(calls.size(), 1);
    EXPECT_EQ(calls[0].level, level::WARNING);
    EXPECT_EQ(calls[0].message, "VR12 page failure. Retry 1");
}

TEST_F(I2cRetryTest, LogFailureOffKeepsRetriesButNoRecords)
{
    fake.i2c.removeDevice(bus, dev);
    EXPECT_FALSE(writeThenRead(3, false));
    EXPECT_EQ(fake.i2c.openCount(), 3);
    EXPECT_TRUE(records().empty());
    std::string text = output();
    size_t lines = 0;
    for (size_t at = 0;
         (at = text.find("Write 0x05 fail.", at)) != std::string::npos; ++at)
    {
        ++lines;
    }
    EXPECT_EQ(lines, 3);
}

TEST_F(I2cRetryTest, EmptyLabelAndNonPositiveRetries)
{
    fake.i2c.removeDevice(bus, dev);
    EXPECT_FALSE(writeThenRead(0, true, ""));
    EXPECT_FALSE(writeThenRead(-2, true, ""));
    auto calls = records();
    ASSERT_EQ(calls.size(), 2);
    EXPECT_EQ(calls[0].message, " Retry 1");
    EXPECT_EQ(calls[0].level, level::CRITICAL);
    EXPECT_EQ(calls[1].level, level::CRITICAL);
    EXPECT_EQ(fake.i2c.openCount(), 2);
}

TEST_F(I2cRetryTest, OpenFailureStillClosesAndReports)
{
    EXPECT_FALSE(WriteReadWithRetry(&event, 2, 9, dev, reg, 0, nullptr, 0,
                                    nullptr, true, "Mux"));
    EXPECT_EQ(event, 1);
    auto calls = records();
    ASSERT_EQ(calls.size(), 2);
    EXPECT_TRUE(calls[1].i2c->noAccess);
    EXPECT_EQ(calls[1].i2c->bus, 9);
    // The close of fd -1 is part of the pattern and harmless.
    auto closes = fake.i2c.operations(Kind::close);
    ASSERT_EQ(closes.size(), 2);
    EXPECT_EQ(closes[0].result, -1);
    EXPECT_THAT(output(), HasSubstr("] Fail to OpenChannel\n"));
}

TEST_F(I2cRetryTest, NoPartsOnlyProvesTheBusOpens)
{
    EXPECT_TRUE(WriteReadWithRetry(&event, 3, bus, dev, reg, 0, nullptr, 0,
                                   nullptr, true, "probe"));
    EXPECT_EQ(fake.i2c.operations().size(), 2); // open and close
}

} // namespace
} // namespace orvane::test
