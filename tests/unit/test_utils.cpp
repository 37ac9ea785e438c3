// The I2C channel, its one-shot and retrying forms, and the GPIO lines, on
// the fake seams.
#include "fakes/console_capture.hpp"
#include "fakes/fake_platform.hpp"
#include "logging/log_line.hpp"
#include "utils/gpio_lines.hpp"
#include "utils/i2c_channel.hpp"
#include "utils/i2c_ops.hpp"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using namespace ::testing;
using namespace std::chrono_literals;
using Kind = I2cOp::Kind;
namespace level = logging::level;

constexpr int bus = 3;
constexpr uint8_t dev = 0x50;
constexpr uint8_t reg = 0x05;

std::vector<Kind> kinds(const FakeI2c& i2c)
{
    std::vector<Kind> all;
    for (const I2cOp& op : i2c.operations())
    {
        all.push_back(op.kind);
    }
    return all;
}

// A bus with one device, and a channel on one descriptor held over the
// test.
class I2cChannelTest : public testing::Test
{
  protected:
    I2cChannelTest()
    {
        fake.i2c.addDevice(bus, dev);
        channel.bus = bus;
        EXPECT_TRUE(channel.OpenChannel(&event));
    }

    ~I2cChannelTest() override
    {
        fake.i2c.close(channel.fd);
    }

    void fail(Kind kind, int error, int times = -1)
    {
        fake.i2c.inject({kind, bus, dev, error, times});
    }

    FakePlatform fake;
    int event = -1;
    I2CChannel channel;
};

// The channel operations that the failures below go through.
enum class Op
{
    slave,
    writeByte,
    writeBlock,
    readByte,
    readBlock,
    smbusRead,
    pecByte,
    pecByteData,
    read16,
};

bool perform(I2CChannel& channel, Op op, int* event)
{
    uint8_t block[10] = {};
    switch (op)
    {
        case Op::slave:
            return channel.SetSlaveAddr(event, dev);
        case Op::writeByte:
            return channel.WriteMemoryByte(event, dev, 0x1A, 0xFF);
        case Op::writeBlock:
            return channel.WriteMemoryBlock(event, dev, 0x1A, 10, block);
        case Op::readByte:
            return channel.ReadMemoryByte(event, dev, 0x07, block);
        case Op::readBlock:
            return channel.ReadMemoryBlock(event, dev, 0x40, 3, block);
        case Op::smbusRead:
            return channel.SmbusReadBlock(event, dev, 0x8B, block, 2);
        case Op::pecByte:
            return channel.SmbusWriteByte(event, dev, 0x03, true);
        case Op::pecByteData:
            return channel.SmbusWriteByteData(event, dev, 0x00, 0x07, true);
        case Op::read16:
            return channel.ReadMemoryBlock16(event, dev, 0xF24B, 2, block);
    }
    return true;
}

// Each failed step gives its event and its line, with errno in decimal;
// only the slave address's errno stands in hex.
TEST_F(I2cChannelTest, FailedStepsNameTheirEventAndValues)
{
    struct Case
    {
        Kind kind; // fails once, with this errno or else this short count
        int error;
        long shortCount;
        Op op;
        int event;
        const char* text; // empty: the failure is silent
    };
    // clang-format off
    const Case cases[] = {
        {Kind::setSlave, EREMOTEIO, 0, Op::slave, 2, "Failed to acquire bus access and/or talk to slave, addr=0x50 errno=79 (Remote I/O error)"},
        {Kind::write, EREMOTEIO, 0, Op::writeByte, 4, "I2C write to memory failed, addr=0x50 mem_addr=0x1a data=0xff ret=-1 expected=2 errno=121 (Remote I/O error)"},
        {Kind::write, 0, 1, Op::writeBlock, 4, "I2C write to memory from buffer failed, addr=0x50 mem_addr=0x1a n_bytes=10 ret=1 expected=11 errno=0"},
        {Kind::write, ENXIO, 0, Op::readByte, 4, "I2C write register address failed, addr=0x50 mem_addr=0x7 write_ret=-1 expected=1 errno=6 (No such device or address)"},
        {Kind::read, EREMOTEIO, 0, Op::readByte, 5, "I2C read from memory failed, addr=0x50 mem_addr=0x7 read_ret=-1 expected=1 errno=121 (Remote I/O error)"},
        // A block read's address write fails silently, with event 0.
        {Kind::write, ENXIO, 0, Op::readBlock, 0, ""},
        {Kind::read, 0, 2, Op::readBlock, 5, "] I2C read from memory failed\n"},
        // An SMBus block read must return the whole length.
        {Kind::smbusReadBlock, 0, 1, Op::smbusRead, 5, "I2C SMbus read failed, addr=0x50 cmd=0x8b readsize=1 expected=2 errno=0"},
        {Kind::setPec, EINVAL, 0, Op::pecByte, 3, "Failed to set the PEC, value=1 errno=22 (Invalid argument)"},
        {Kind::smbusWriteByteData, EREMOTEIO, 0, Op::pecByteData, 4, "I2C Write byte data failed, addr=0x50 cmd=0x0 data=0x7 ret=-121 errno=121"},
        {Kind::rdwr, ENXIO, 0, Op::read16, 0, ""},
    };
    // clang-format on
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.text);
        fake.i2c.inject(
            {c.kind, bus, dev, c.error, 1,
             c.shortCount ? std::optional(c.shortCount) : std::nullopt});
        event = -1;
        std::string out =
            console([&] { EXPECT_FALSE(perform(channel, c.op, &event)); });
        EXPECT_EQ(event, c.event);
        if (*c.text == '\0')
        {
            EXPECT_EQ(out, "");
        }
        else
        {
            EXPECT_THAT(out, HasSubstr(c.text));
        }
    }
}

TEST_F(I2cChannelTest, FailedSlaveAddressStopsEveryTransfer)
{
    fail(Kind::setSlave, EBUSY);
    std::string out = console([&] {
        for (int op = int(Op::writeByte); op <= int(Op::read16); ++op)
        {
            EXPECT_FALSE(perform(channel, Op(op), &event)) << op;
        }
    });
    EXPECT_EQ(event, 2);
    EXPECT_EQ(fake.i2c.operations().size(), 1 + 8); // the open, 8 attempts
    EXPECT_EQ(fake.i2c.operations(Kind::setSlave).size(), 8);
    // The SMBus and 16-bit operations add their own line.
    EXPECT_EQ(occurrences(out, "Fail to SetSlaveAddr 0x50"), 4U);
}

TEST_F(I2cChannelTest, TransfersMoveTheRegisters)
{
    const uint8_t block[3] = {0xA1, 0xA2, 0xA3};
    fake.i2c.setRegisters(bus, dev, 0x40, {1, 2, 3});
    uint8_t byte = 0;
    uint8_t read[3] = {};
    std::string out = console([&] {
        EXPECT_TRUE(channel.WriteMemoryByte(&event, dev, 0x10, 0x55));
        EXPECT_TRUE(channel.WriteMemoryBlock(&event, dev, 0x20, 3, block));
        EXPECT_TRUE(channel.WriteMemoryBlock(&event, dev, 0x30, 0, nullptr));
        EXPECT_TRUE(channel.ReadMemoryByte(&event, dev, 0x22, &byte));
        EXPECT_TRUE(channel.ReadMemoryBlock(&event, dev, 0x40, 3, read));
    });
    EXPECT_EQ(event, 0);
    EXPECT_EQ(out, "");
    EXPECT_EQ(fake.i2c.registerValue(bus, dev, 0x10), 0x55);
    EXPECT_EQ(byte, 0xA3);
    EXPECT_THAT(read, ElementsAre(1, 2, 3));
    EXPECT_EQ(fake.i2c.operations(Kind::write)[2].bytes,
              std::vector<uint8_t>{0x30});

    EXPECT_TRUE(channel.SmbusReadBlock(&event, dev, 0x41, read, 2));
    EXPECT_THAT(read, ElementsAre(2, 3, 3));

    // The 16-bit offset goes high byte first.
    fake.i2c.addDevice(bus, 0x56, 2);
    fake.i2c.setRegisters(bus, 0x56, 0xF24B, {0x00, 0x5A});
    uint8_t wide[2] = {0xEE, 0xEE};
    EXPECT_TRUE(channel.ReadMemoryBlock16(&event, 0x56, 0xF24B, 2, wide));
    EXPECT_THAT(wide, ElementsAre(0x00, 0x5A));
    auto transfer = fake.i2c.operations(Kind::rdwr).at(0);
    EXPECT_EQ(transfer.bytes, (std::vector<uint8_t>{0xF2, 0x4B}));
    EXPECT_EQ(transfer.command, 0xF24B);

    // PEC wraps the SMBus write only when asked for.
    fake.i2c.clearOperations();
    event = -1;
    out = console([&] {
        EXPECT_TRUE(channel.SmbusWriteByteData(&event, dev, 0x00, 0x01, true));
        EXPECT_TRUE(channel.SmbusWriteByte(&event, dev, 0x03, false));
    });
    EXPECT_EQ(std::tuple(event, out), std::tuple(0, ""));
    EXPECT_EQ(fake.i2c.registerValue(bus, dev, 0x00), 0x01);
    EXPECT_EQ(kinds(fake.i2c),
              (std::vector<Kind>{Kind::setSlave, Kind::setPec,
                                 Kind::smbusWriteByteData, Kind::setPec,
                                 Kind::setSlave, Kind::smbusWriteByte}));
    auto pec = fake.i2c.operations(Kind::setPec);
    EXPECT_EQ(pec[0].command, 1);
    EXPECT_EQ(pec[1].command, 0);
}

TEST_F(I2cChannelTest, SmbusWriteByteFailsWhenPecCannotBeDisabled)
{
    // The enable goes through, the disable fails.
    fake.i2c.setObserver([&](const I2cOp& op) {
        if (op.kind == Kind::setPec && op.command == 1)
        {
            fail(Kind::setPec, EIO, 1);
        }
    });
    std::string out = console(
        [&] { EXPECT_FALSE(channel.SmbusWriteByte(&event, dev, 0x03, true)); });
    EXPECT_EQ(event, 3);
    EXPECT_EQ(fake.i2c.operations(Kind::smbusWriteByte).size(), 1);
    EXPECT_THAT(out, HasSubstr("Fail to disable the PEC"));
}

// One-shot operations: a fresh descriptor per call, always closed.
using I2cOneShotTest = I2cChannelTest;

TEST_F(I2cOneShotTest, EveryOperationClosesItsDescriptor)
{
    uint8_t byte = 0;
    uint8_t block[2] = {};
    fake.i2c.inject({Kind::read, bus, dev});
    console([&] {
        EXPECT_TRUE(I2CWriteMemoryByte(&event, bus, dev, 1, 2));
        EXPECT_TRUE(I2CWriteMemoryBlock(&event, bus, dev, 1, 2, block));
        EXPECT_FALSE(I2CReadMemoryByte(&event, bus, dev, 1, &byte));
        EXPECT_TRUE(I2CSmbusReadBlock(&event, bus, dev, 1, block, 2));
        EXPECT_TRUE(I2CSmbusWriteByte(&event, bus, dev, 1, true));
        EXPECT_TRUE(I2CSmbusWriteByteData(&event, bus, dev, 1, 2, false));
        EXPECT_FALSE(I2CReadMemoryBlock16(&event, bus, 0x77, 1, 2, block));
    });
    // Seven descriptors of their own, and the fixture's left open.
    EXPECT_EQ(fake.i2c.operations(Kind::open).size(), 7 + 1);
    EXPECT_EQ(fake.i2c.openDescriptors(), 1);
}

// The one-shot form says OpenChannel in its own spelling.
TEST_F(I2cOneShotTest, OpenFailureReportsEventOne)
{
    I2CChannel other;
    other.bus = 9; // no such bus
    std::string out = console([&] { EXPECT_FALSE(other.OpenChannel(&event)); });
    EXPECT_EQ(event, 1);
    EXPECT_LT(other.fd, 0);
    EXPECT_THAT(out, HasSubstr("[ERROR \"i2c_channel.cpp\":"));
    EXPECT_EQ(fake.i2c.operations(Kind::open).back().bus, 9);

    event = -1;
    out = console(
        [&] { EXPECT_FALSE(I2CWriteMemoryByte(&event, 12, dev, 1, 2)); });
    EXPECT_EQ(event, 1);
    EXPECT_THAT(out, HasSubstr("Failed to open the I2C bus\n"));
    EXPECT_THAT(out, HasSubstr("Fail to OpenCHannel\n"));
    EXPECT_EQ(fake.i2c.openDescriptors(), 1);
}

TEST_F(I2cOneShotTest, WriteThenReadPrintsTheFailedStep)
{
    uint8_t back = 0;
    EXPECT_TRUE(I2CWriteThenRead(&event, bus, dev, 0x0A, 0x3C, &back));
    EXPECT_EQ(back, 0x3C);

    std::string out = console([&] {
        fail(Kind::write, ENXIO, 1);
        EXPECT_FALSE(I2CWriteThenRead(&event, bus, dev, 0x0A, 0x3C, &back));
        EXPECT_EQ(event, 4);
        fail(Kind::read, ENXIO, 1);
        EXPECT_FALSE(I2CWriteThenRead(&event, bus, dev, 0x0A, 0x3C, &back));
        EXPECT_EQ(event, 5);
    });
    EXPECT_THAT(out, HasSubstr("\nWrite 0x0a fail\n"));
    EXPECT_THAT(out, HasSubstr("\nRead 0x0a fail\n"));
    EXPECT_EQ(fake.i2c.openDescriptors(), 1);
}

// Write, then read, retried from the open on.
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
    EXPECT_EQ(
        kinds(fake.i2c),
        (std::vector<Kind>{Kind::open, Kind::setSlave, Kind::write,
                           Kind::setSlave, Kind::smbusReadBlock, Kind::close}));
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
    const I2CLogData& d = *calls[2].i2c;
    EXPECT_EQ(std::tuple(calls[2].flag, d.writeFailed, int{d.bus}, d.address,
                         d.reg, d.writeLength, d.writeBuffer, d.readLength,
                         d.readBuffer),
              std::tuple(true, true, bus, uint16_t{dev}, uint16_t{reg}, 1U,
                         &out, 1U, &in));
    // A retry starts over: open, address, and the write again.
    EXPECT_EQ(fake.i2c.operations(Kind::open).size(), 3);
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
    EXPECT_EQ(fake.i2c.operations(Kind::open).size(), 3 + 3 + 2);
}

TEST_F(I2cRetryTest, EventNamesTheStepThatFailedLast)
{
    fake.i2c.inject({Kind::setSlave, bus, dev, EBUSY});
    writeThenRead(false);
    EXPECT_EQ(event, 2);
    EXPECT_TRUE(records().back().i2c->noAccess);

    fake.i2c.clearFaults();
    fake.i2c.inject({Kind::smbusReadBlock, bus, dev});
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

    // A retry that goes through ends with event 0; only the failed try is
    // recorded, as a warning.
    fake.zellib.clear();
    fake.i2c.clearFaults();
    fake.i2c.inject({Kind::write, bus, dev, EREMOTEIO, 1});
    writeThenRead(true);
    EXPECT_EQ(event, 0);
    ASSERT_EQ(records().size(), 1);
    EXPECT_EQ(records()[0].level, level::WARNING);
    EXPECT_EQ(records()[0].message, "VR12 page failure. Retry 1");
}

constexpr const char* pwrEn = "GPU_BASE_PWR_EN";
constexpr const char* pwrGd = "GPU_BASE_PWR_GD";

class GpioTest : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        platform.gpio.addLines({pwrEn, pwrGd});
        platform.gpio.setInput(pwrEn, 1);
    }

    FakePlatform platform;
};

// Each call requests the line for itself and lets it go; levels are
// physical, whatever the line's name says.
TEST_F(GpioTest, EachCallTakesTheLineAndLetsItGo)
{
    int value = -1;
    std::string out = console([&] {
        EXPECT_TRUE(GetGPIOValue(pwrEn, value));
        EXPECT_EQ(value, 1);
        platform.gpio.setInput(pwrEn, 0);
        EXPECT_TRUE(GetGPIOValue(pwrEn, value));
        EXPECT_EQ(value, 0);
        EXPECT_TRUE(SetGPIOOutput(pwrGd, 1));
        EXPECT_TRUE(SetGPIOOutput(pwrGd, 0));
    });

    EXPECT_THAT(out, IsEmpty());
    EXPECT_EQ(platform.gpio.requests(pwrEn)[0].direction,
              platform::GpioDirection::input);
    auto drives = platform.gpio.requests(pwrGd);
    ASSERT_THAT(drives, SizeIs(2));
    EXPECT_EQ(drives[0].direction, platform::GpioDirection::output);
    EXPECT_EQ(drives[1].defaultValue, 0);
    EXPECT_THAT(platform.gpio.writes(pwrGd), ElementsAre(1, 0));
    EXPECT_FALSE(platform.gpio.isRequested(pwrEn));
    EXPECT_FALSE(platform.gpio.isRequested(pwrGd));
}

TEST_F(GpioTest, UnknownLineWarnsAndKeepsTheValue)
{
    int value = 7;
    std::string out = console([&] {
        EXPECT_FALSE(GetGPIOValue("NO_SUCH_LINE", value));
        EXPECT_FALSE(SetGPIOOutput("NO_SUCH_LINE", 1));
    });

    EXPECT_EQ(value, 7);
    EXPECT_THAT(out,
                AllOf(HasSubstr("[WARNING \"gpio_lines.cpp\":"),
                      HasSubstr("] Can't find lineNO_SUCH_LINE\n"),
                      HasSubstr("] Failed to find the NO_SUCH_LINE line.\n")));
    EXPECT_THAT(platform.gpio.requests(), IsEmpty());
}

// A busy line is asked again every ten microseconds, ten thousand times at
// most: the last may still get the line.
TEST_F(GpioTest, LineBusyForeverIsReportedToTheJournal)
{
    platform.gpio.failRequests(pwrEn, EBUSY, 9'999);
    int value = -1;
    EXPECT_TRUE(GetGPIOValue(pwrEn, value));
    EXPECT_EQ(value, 1);
    EXPECT_THAT(platform.gpio.requests(pwrEn), SizeIs(10'000));
    EXPECT_THAT(platform.journal.entries(), IsEmpty());

    platform.gpio.failRequests(pwrEn, EBUSY);
    value = 5;
    std::string out =
        console([&] { EXPECT_FALSE(GetGPIOValue(pwrEn, value)); });

    EXPECT_EQ(value, 5);
    EXPECT_THAT(platform.gpio.requests(pwrEn), SizeIs(20'000));
    auto sleeps = platform.clock.sleeps();
    EXPECT_THAT(sleeps, SizeIs(2 * 9'999));
    EXPECT_THAT(sleeps, Each(10us));

    auto entries = platform.journal.entries();
    ASSERT_THAT(entries, SizeIs(1));
    EXPECT_EQ(entries[0].priority, 3);
    EXPECT_THAT(entries[0].file, EndsWith("gpio_lines.cpp"));
    EXPECT_EQ(entries[0].line, 811);
    EXPECT_EQ(entries[0].function, "GetGPIOValue");
    EXPECT_EQ(entries[0].message,
              "Error setting gpio as Input " + std::string(pwrEn));
    // The reason follows on the console, bare, without a line prefix.
    EXPECT_THAT(out, AllOf(StartsWith("error is: "),
                           HasSubstr(std::strerror(EBUSY)), EndsWith("\n")));
    EXPECT_FALSE(platform.gpio.isRequested(pwrEn));
}

// Other request errors on a read, and any on a write, are not retried; a
// failed read or drive is reported and lets the line go.
TEST(GpioFailureTest, EachFailureIsReportedOnce)
{
    const std::string error = "[ERROR \"gpio_lines.cpp\":";
    struct Case
    {
        const char* line;
        void (*fault)(FakeGpio&);
        std::vector<std::string> texts;
        size_t journal;
    };
    // clang-format off
    const Case cases[] = {
        {pwrEn, [](FakeGpio& g) { g.failRequests(pwrEn, EIO, 1); }, {std::strerror(EIO)}, 1},
        {pwrEn, [](FakeGpio& g) { g.failAccess(pwrEn, EIO, 0); }, {error, "] Fail to get value", std::strerror(EIO)}, 0},
        {pwrGd, [](FakeGpio& g) { g.failRequests(pwrGd, EBUSY, 1); }, {error, "] Error setting gpio as Output: " + std::string(pwrGd), std::strerror(EBUSY)}, 0},
        {pwrGd, [](FakeGpio& g) { g.failAccess(pwrGd, 0, EIO); }, {error, "] Failed to set value for " + std::string(pwrGd), std::strerror(EIO)}, 0},
    };
    // clang-format on
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.texts.back());
        FakePlatform platform;
        platform.gpio.addLines({pwrEn, pwrGd});
        c.fault(platform.gpio);
        int value = 5;
        std::string out = console([&] {
            EXPECT_FALSE(c.line == pwrEn ? GetGPIOValue(pwrEn, value)
                                         : SetGPIOOutput(pwrGd, 1));
        });

        EXPECT_EQ(value, 5);
        for (const std::string& text : c.texts)
        {
            EXPECT_THAT(out, HasSubstr(text));
        }
        EXPECT_THAT(platform.gpio.requests(c.line), SizeIs(1));
        EXPECT_THAT(platform.clock.sleeps(), IsEmpty());
        EXPECT_THAT(platform.gpio.writes(), IsEmpty());
        EXPECT_THAT(platform.journal.entries(), SizeIs(c.journal));
        EXPECT_FALSE(platform.gpio.isRequested(c.line));
    }
}

} // namespace
} // namespace orvane::test
