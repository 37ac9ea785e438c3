#include "fakes/console_capture.hpp"
#include "fakes/fake_platform.hpp"
#include "utils/i2c_channel.hpp"
#include "utils/i2c_ops.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using namespace ::testing;
using Kind = I2cOp::Kind;

constexpr int bus = 3;
constexpr uint8_t dev = 0x50;

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

    std::vector<Kind> kinds() const
    {
        std::vector<Kind> all;
        for (const I2cOp& op : fake.i2c.operations())
        {
            all.push_back(op.kind);
        }
        return all;
    }

    void fail(Kind kind, int error, int times = -1)
    {
        fake.i2c.inject({kind, bus, dev, error, std::nullopt, times});
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
        I2cFault fault; // once; a count instead of an errno is a short one
        Op op;
        int event;
        const char* text; // empty: the failure is silent
    };
    const Case cases[] = {
        {{Kind::setSlave, bus, dev, EREMOTEIO, {}, 1},
         Op::slave,
         2,
         "Failed to acquire bus access and/or talk to slave, addr=0x50 "
         "errno=79 (Remote I/O error)"},
        {{Kind::write, bus, dev, EREMOTEIO, {}, 1},
         Op::writeByte,
         4,
         "I2C write to memory failed, addr=0x50 mem_addr=0x1a data=0xff "
         "ret=-1 expected=2 errno=121 (Remote I/O error)"},
        {{Kind::write, bus, dev, 0, 1, 1},
         Op::writeBlock,
         4,
         "I2C write to memory from buffer failed, addr=0x50 mem_addr=0x1a "
         "n_bytes=10 ret=1 expected=11 errno=0"},
        {{Kind::write, bus, dev, ENXIO, {}, 1},
         Op::readByte,
         4,
         "I2C write register address failed, addr=0x50 mem_addr=0x7 "
         "write_ret=-1 expected=1 errno=6 (No such device or address)"},
        {{Kind::read, bus, dev, EREMOTEIO, {}, 1},
         Op::readByte,
         5,
         "I2C read from memory failed, addr=0x50 mem_addr=0x7 read_ret=-1 "
         "expected=1 errno=121 (Remote I/O error)"},
        // A block read's address write fails silently, with event 0.
        {{Kind::write, bus, dev, ENXIO, {}, 1}, Op::readBlock, 0, ""},
        {{Kind::read, bus, dev, 0, 2, 1},
         Op::readBlock,
         5,
         "] I2C read from memory failed\n"},
        // An SMBus block read must return the whole length.
        {{Kind::smbusReadBlock, bus, dev, 0, 1, 1},
         Op::smbusRead,
         5,
         "I2C SMbus read failed, addr=0x50 cmd=0x8b readsize=1 expected=2 "
         "errno=0"},
        {{Kind::setPec, bus, dev, EINVAL, {}, 1},
         Op::pecByte,
         3,
         "Failed to set the PEC, value=1 errno=22 (Invalid argument)"},
        {{Kind::smbusWriteByteData, bus, dev, EREMOTEIO, {}, 1},
         Op::pecByteData,
         4,
         "I2C Write byte data failed, addr=0x50 cmd=0x0 data=0x7 ret=-121 "
         "errno=121"},
        {{Kind::rdwr, bus, dev, ENXIO, {}, 1}, Op::read16, 0, ""},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.text);
        fake.i2c.inject(c.fault);
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
    uint8_t byte = 0;
    uint8_t block[4] = {};
    std::string out = console([&] {
        EXPECT_FALSE(channel.WriteMemoryByte(&event, dev, 1, 2));
        EXPECT_FALSE(channel.WriteMemoryBlock(&event, dev, 1, 4, block));
        EXPECT_FALSE(channel.ReadMemoryByte(&event, dev, 1, &byte));
        EXPECT_FALSE(channel.ReadMemoryBlock(&event, dev, 1, 4, block));
        EXPECT_FALSE(channel.SmbusReadBlock(&event, dev, 1, block, 4));
        EXPECT_FALSE(channel.SmbusWriteByte(&event, dev, 1, true));
        EXPECT_FALSE(channel.SmbusWriteByteData(&event, dev, 1, 2, true));
        EXPECT_FALSE(channel.ReadMemoryBlock16(&event, dev, 0x100, 4, block));
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
}

TEST_F(I2cChannelTest, PecWrapsTheSmbusWrite)
{
    std::string out = console([&] {
        EXPECT_TRUE(channel.SmbusWriteByteData(&event, dev, 0x00, 0x01, true));
        EXPECT_TRUE(channel.SmbusWriteByte(&event, dev, 0x03, false));
    });
    EXPECT_EQ(event, 0);
    EXPECT_EQ(out, "");
    EXPECT_EQ(fake.i2c.registerValue(bus, dev, 0x00), 0x01);
    EXPECT_EQ(kinds(),
              (std::vector<Kind>{Kind::open, Kind::setSlave, Kind::setPec,
                                 Kind::smbusWriteByteData, Kind::setPec,
                                 Kind::setSlave, Kind::smbusWriteByte}));
    auto pec = fake.i2c.operations(Kind::setPec);
    EXPECT_EQ(pec[0].command, 1);
    EXPECT_EQ(pec[1].command, 0);
}

TEST_F(I2cChannelTest, SmbusWriteByteFailsWhenPecCannotBeDisabled)
{
    // The enable goes through, the disable fails.
    int calls = 0;
    fake.i2c.setObserver([&](const I2cOp& op) {
        if (op.kind == Kind::setPec && ++calls == 1)
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
    fake.i2c.inject({Kind::read, bus, dev, EIO, std::nullopt, -1});
    console([&] {
        EXPECT_TRUE(I2CWriteMemoryByte(&event, bus, dev, 1, 2));
        EXPECT_TRUE(I2CWriteMemoryBlock(&event, bus, dev, 1, 2, block));
        EXPECT_FALSE(I2CReadMemoryByte(&event, bus, dev, 1, &byte));
        EXPECT_TRUE(I2CSmbusReadBlock(&event, bus, dev, 1, block, 2));
        EXPECT_TRUE(I2CSmbusWriteByte(&event, bus, dev, 1, true));
        EXPECT_TRUE(I2CSmbusWriteByteData(&event, bus, dev, 1, 2, false));
        EXPECT_FALSE(I2CReadMemoryBlock16(&event, bus, 0x77, 1, 2, block));
    });
    // And the fixture's own channel.
    EXPECT_EQ(fake.i2c.openCount(), 7 + 1);
    EXPECT_EQ(fake.i2c.closeCount(), 7);
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
    EXPECT_EQ(fake.i2c.closeCount(), 0);
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

} // namespace
} // namespace orvane::test
