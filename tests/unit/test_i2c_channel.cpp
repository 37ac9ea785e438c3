#include "fakes/fake_platform.hpp"
#include "utils/i2c_channel.hpp"
#include "utils/i2c_ops.hpp"

#include <iostream>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using testing::HasSubstr;
using testing::Not;
using Kind = I2cOp::Kind;

constexpr int bus = 3;
constexpr uint8_t dev = 0x50;

// A bus with one device and the console captured.
class I2cBusTest : public testing::Test
{
  protected:
    I2cBusTest()
    {
        fake.i2c.addDevice(bus, dev);
        capture();
    }

    ~I2cBusTest() override
    {
        if (capturing)
        {
            output();
        }
    }

    std::string output()
    {
        capturing = false;
        std::string text = testing::internal::GetCapturedStdout();
        // Failure messages went into the capture too: show them.
        if (HasFailure())
        {
            std::cerr << text;
        }
        return text;
    }

    void capture()
    {
        capturing = true;
        testing::internal::CaptureStdout();
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

    void shortCount(Kind kind, long count)
    {
        fake.i2c.inject({kind, bus, dev, 0, count, -1});
    }

    FakePlatform fake;
    int event = -1;
    bool capturing = false;
};

// Channel operations on one descriptor held over the test.
class I2cChannelTest : public I2cBusTest
{
  protected:
    I2cChannelTest()
    {
        channel.bus = bus;
        EXPECT_TRUE(channel.OpenChannel(&event));
    }

    ~I2cChannelTest() override
    {
        fake.i2c.close(channel.fd);
    }

    I2CChannel channel;
};

TEST_F(I2cChannelTest, OpenFailureReportsEventOne)
{
    I2CChannel other;
    other.bus = 9; // no such bus
    EXPECT_FALSE(other.OpenChannel(&event));
    EXPECT_EQ(event, 1);
    EXPECT_LT(other.fd, 0);
    EXPECT_THAT(output(), HasSubstr("[ERROR \"i2c_channel.cpp\":"));
    EXPECT_EQ(fake.i2c.operations(Kind::open).back().bus, 9);
}

TEST_F(I2cChannelTest, SlaveAddressErrnoStaysInHex)
{
    fail(Kind::setSlave, EREMOTEIO, 1);
    fail(Kind::setSlave, ENXIO, 1);
    EXPECT_FALSE(channel.SetSlaveAddr(&event, dev));
    EXPECT_EQ(event, 2);
    EXPECT_FALSE(channel.SetSlaveAddr(&event, dev));
    std::string text = output();
    EXPECT_THAT(text, HasSubstr("Failed to acquire bus access and/or talk to "
                                "slave, addr=0x50 errno=79 (Remote I/O "
                                "error)"));
    EXPECT_THAT(text, HasSubstr("addr=0x50 errno=6 (No such device or "
                                "address)"));
}

TEST_F(I2cChannelTest, FailedSlaveAddressStopsEveryTransfer)
{
    fail(Kind::setSlave, EBUSY);
    uint8_t byte = 0;
    uint8_t block[4] = {};
    EXPECT_FALSE(channel.WriteMemoryByte(&event, dev, 1, 2));
    EXPECT_FALSE(channel.WriteMemoryBlock(&event, dev, 1, 4, block));
    EXPECT_FALSE(channel.ReadMemoryByte(&event, dev, 1, &byte));
    EXPECT_FALSE(channel.ReadMemoryBlock(&event, dev, 1, 4, block));
    EXPECT_FALSE(channel.SmbusReadBlock(&event, dev, 1, block, 4));
    EXPECT_FALSE(channel.SmbusWriteByte(&event, dev, 1, true));
    EXPECT_FALSE(channel.SmbusWriteByteData(&event, dev, 1, 2, true));
    EXPECT_FALSE(channel.ReadMemoryBlock16(&event, dev, 0x100, 4, block));
    EXPECT_EQ(event, 2);
    EXPECT_EQ(fake.i2c.operations().size(), 1 + 8); // the open, 8 attempts
    EXPECT_EQ(fake.i2c.operations(Kind::setSlave).size(), 8);
    // The SMBus and 16-bit operations add their own line.
    std::string text = output();
    size_t extra = 0;
    for (size_t at = 0;
         (at = text.find("Fail to SetSlaveAddr 0x50", at)) != std::string::npos;
         ++at)
    {
        ++extra;
    }
    EXPECT_EQ(extra, 4);
}

TEST_F(I2cChannelTest, WritesLandInConsecutiveRegisters)
{
    const uint8_t block[3] = {0xA1, 0xA2, 0xA3};
    EXPECT_TRUE(channel.WriteMemoryByte(&event, dev, 0x10, 0x55));
    EXPECT_TRUE(channel.WriteMemoryBlock(&event, dev, 0x20, 3, block));
    EXPECT_TRUE(channel.WriteMemoryBlock(&event, dev, 0x30, 0, nullptr));
    EXPECT_EQ(event, 0);
    EXPECT_EQ(fake.i2c.registerValue(bus, dev, 0x10), 0x55);
    EXPECT_EQ(fake.i2c.registerValue(bus, dev, 0x22), 0xA3);
    auto writes = fake.i2c.operations(Kind::write);
    ASSERT_EQ(writes.size(), 3);
    EXPECT_EQ(writes[2].bytes, std::vector<uint8_t>{0x30});
    EXPECT_EQ(output(), "");
}

TEST_F(I2cChannelTest, FailedWritesReportEventFourWithDecimalCounts)
{
    fail(Kind::write, EREMOTEIO, 1);
    EXPECT_FALSE(channel.WriteMemoryByte(&event, dev, 0x1A, 0xFF));
    EXPECT_EQ(event, 4);
    event = -1;
    shortCount(Kind::write, 1);
    uint8_t block[10] = {};
    EXPECT_FALSE(channel.WriteMemoryBlock(&event, dev, 0x1A, 10, block));
    EXPECT_EQ(event, 4);
    std::string text = output();
    EXPECT_THAT(text, HasSubstr("I2C write to memory failed, addr=0x50 "
                                "mem_addr=0x1a data=0xff ret=-1 expected=2 "
                                "errno=121 (Remote I/O error)"));
    EXPECT_THAT(text, HasSubstr("I2C write to memory from buffer failed, "
                                "addr=0x50 mem_addr=0x1a n_bytes=10 ret=1 "
                                "expected=11 errno=0"));
}

TEST_F(I2cChannelTest, ReadMemoryByteTellsAddressWriteFromRead)
{
    fake.i2c.setRegister(bus, dev, 0x07, 0x99);
    uint8_t byte = 0;
    EXPECT_TRUE(channel.ReadMemoryByte(&event, dev, 0x07, &byte));
    EXPECT_EQ(byte, 0x99);

    fail(Kind::write, ENXIO, 1);
    EXPECT_FALSE(channel.ReadMemoryByte(&event, dev, 0x07, &byte));
    EXPECT_EQ(event, 4);
    fail(Kind::read, EREMOTEIO, 1);
    EXPECT_FALSE(channel.ReadMemoryByte(&event, dev, 0x07, &byte));
    EXPECT_EQ(event, 5);
    std::string text = output();
    EXPECT_THAT(text, HasSubstr("I2C write register address failed, "
                                "addr=0x50 mem_addr=0x7 write_ret=-1 "
                                "expected=1 errno=6 (No such device or "
                                "address)"));
    EXPECT_THAT(text, HasSubstr("I2C read from memory failed, addr=0x50 "
                                "mem_addr=0x7 read_ret=-1 expected=1 "
                                "errno=121 (Remote I/O error)"));
}

TEST_F(I2cChannelTest, ReadMemoryBlockIsSilentOnAddressWrite)
{
    fake.i2c.setRegisters(bus, dev, 0x40, {1, 2, 3});
    uint8_t block[3] = {};
    EXPECT_TRUE(channel.ReadMemoryBlock(&event, dev, 0x40, 3, block));
    EXPECT_THAT(block, testing::ElementsAre(1, 2, 3));

    fail(Kind::write, ENXIO, 1);
    event = -1;
    EXPECT_FALSE(channel.ReadMemoryBlock(&event, dev, 0x40, 3, block));
    EXPECT_EQ(event, 0);
    EXPECT_EQ(output(), "");

    capture();
    shortCount(Kind::read, 2);
    EXPECT_FALSE(channel.ReadMemoryBlock(&event, dev, 0x40, 3, block));
    EXPECT_EQ(event, 5);
    EXPECT_THAT(output(), HasSubstr("] I2C read from memory failed\n"));
}

TEST_F(I2cChannelTest, SmbusReadBlockMustReturnTheWholeLength)
{
    fake.i2c.setRegisters(bus, dev, 0x8B, {0x34, 0x12});
    uint8_t block[2] = {};
    EXPECT_TRUE(channel.SmbusReadBlock(&event, dev, 0x8B, block, 2));
    EXPECT_THAT(block, testing::ElementsAre(0x34, 0x12));

    shortCount(Kind::smbusReadBlock, 1);
    EXPECT_FALSE(channel.SmbusReadBlock(&event, dev, 0x8B, block, 2));
    EXPECT_EQ(event, 5);
    EXPECT_THAT(output(), HasSubstr("I2C SMbus read failed, addr=0x50 "
                                    "cmd=0x8b readsize=1 expected=2 "
                                    "errno=0"));
}

TEST_F(I2cChannelTest, PecWrapsTheSmbusWrite)
{
    EXPECT_TRUE(channel.SmbusWriteByteData(&event, dev, 0x00, 0x01, true));
    EXPECT_TRUE(channel.SmbusWriteByte(&event, dev, 0x03, false));
    EXPECT_EQ(event, 0);
    EXPECT_EQ(fake.i2c.registerValue(bus, dev, 0x00), 0x01);
    EXPECT_EQ(kinds(),
              (std::vector<Kind>{Kind::open, Kind::setSlave, Kind::setPec,
                                 Kind::smbusWriteByteData, Kind::setPec,
                                 Kind::setSlave, Kind::smbusWriteByte}));
    auto pec = fake.i2c.operations(Kind::setPec);
    EXPECT_EQ(pec[0].command, 1);
    EXPECT_EQ(pec[1].command, 0);
    EXPECT_EQ(output(), "");
}

TEST_F(I2cChannelTest, PecFailuresAtEachStep)
{
    fail(Kind::setPec, EINVAL, 1);
    EXPECT_FALSE(channel.SmbusWriteByte(&event, dev, 0x03, true));
    EXPECT_EQ(event, 3);
    EXPECT_TRUE(fake.i2c.operations(Kind::smbusWriteByte).empty());

    fail(Kind::smbusWriteByteData, EREMOTEIO, 1);
    EXPECT_FALSE(channel.SmbusWriteByteData(&event, dev, 0x00, 0x7, true));
    EXPECT_EQ(event, 4);
    // PEC stays on after the failed write: the close cleans up.
    EXPECT_EQ(fake.i2c.operations(Kind::setPec).size(), 2);

    std::string text = output();
    EXPECT_THAT(text, HasSubstr("Failed to set the PEC, value=1 errno=22 "
                                "(Invalid argument)"));
    EXPECT_THAT(text, HasSubstr("Fail to enable the PEC"));
    EXPECT_THAT(text, HasSubstr("I2C Write byte data failed, addr=0x50 "
                                "cmd=0x0 data=0x7 ret=-121 errno=121"));
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
    EXPECT_FALSE(channel.SmbusWriteByte(&event, dev, 0x03, true));
    EXPECT_EQ(event, 3);
    EXPECT_EQ(fake.i2c.operations(Kind::smbusWriteByte).size(), 1);
    EXPECT_THAT(output(), HasSubstr("Fail to disable the PEC"));
}

TEST_F(I2cChannelTest, ReadMemoryBlock16SendsOffsetHighByteFirst)
{
    fake.i2c.addDevice(bus, 0x56, 2);
    fake.i2c.setRegisters(bus, 0x56, 0xF24B, {0x00, 0x5A});
    uint8_t block[2] = {0xEE, 0xEE};
    EXPECT_TRUE(channel.ReadMemoryBlock16(&event, 0x56, 0xF24B, 2, block));
    EXPECT_THAT(block, testing::ElementsAre(0x00, 0x5A));
    auto transfer = fake.i2c.operations(Kind::rdwr).at(0);
    EXPECT_EQ(transfer.bytes, (std::vector<uint8_t>{0xF2, 0x4B}));
    EXPECT_EQ(transfer.command, 0xF24B);

    fake.i2c.inject({Kind::rdwr, bus, 0x56, ENXIO, std::nullopt, 1});
    EXPECT_FALSE(channel.ReadMemoryBlock16(&event, 0x56, 0xF24B, 2, block));
    EXPECT_EQ(output(), "");
}

// One-shot operations: a fresh descriptor per call, always closed.
using I2cOneShotTest = I2cBusTest;

TEST_F(I2cOneShotTest, EveryOperationClosesItsDescriptor)
{
    uint8_t byte = 0;
    uint8_t block[2] = {};
    fake.i2c.inject({Kind::read, bus, dev, EIO, std::nullopt, -1});
    EXPECT_TRUE(I2CWriteMemoryByte(&event, bus, dev, 1, 2));
    EXPECT_TRUE(I2CWriteMemoryBlock(&event, bus, dev, 1, 2, block));
    EXPECT_FALSE(I2CReadMemoryByte(&event, bus, dev, 1, &byte));
    EXPECT_TRUE(I2CSmbusReadBlock(&event, bus, dev, 1, block, 2));
    EXPECT_TRUE(I2CSmbusWriteByte(&event, bus, dev, 1, true));
    EXPECT_TRUE(I2CSmbusWriteByteData(&event, bus, dev, 1, 2, false));
    EXPECT_FALSE(I2CReadMemoryBlock16(&event, bus, 0x77, 1, 2, block));
    EXPECT_EQ(fake.i2c.openCount(), 7);
    EXPECT_EQ(fake.i2c.closeCount(), 7);
    EXPECT_EQ(fake.i2c.openDescriptors(), 0);
}

TEST_F(I2cOneShotTest, OpenFailureSaysOpenChannelInItsOwnSpelling)
{
    EXPECT_FALSE(I2CWriteMemoryByte(&event, 12, dev, 1, 2));
    EXPECT_EQ(event, 1);
    std::string text = output();
    EXPECT_THAT(text, HasSubstr("Failed to open the I2C bus\n"));
    EXPECT_THAT(text, HasSubstr("Fail to OpenCHannel\n"));
    EXPECT_EQ(fake.i2c.closeCount(), 0);
    EXPECT_EQ(fake.i2c.openDescriptors(), 0);
}

TEST_F(I2cOneShotTest, WriteThenReadPrintsTheFailedStep)
{
    uint8_t back = 0;
    EXPECT_TRUE(I2CWriteThenRead(&event, bus, dev, 0x0A, 0x3C, &back));
    EXPECT_EQ(back, 0x3C);

    fake.i2c.inject({Kind::write, bus, dev, ENXIO, std::nullopt, 1});
    EXPECT_FALSE(I2CWriteThenRead(&event, bus, dev, 0x0A, 0x3C, &back));
    EXPECT_EQ(event, 4);
    fake.i2c.inject({Kind::read, bus, dev, ENXIO, std::nullopt, 1});
    EXPECT_FALSE(I2CWriteThenRead(&event, bus, dev, 0x0A, 0x3C, &back));
    EXPECT_EQ(event, 5);
    std::string text = output();
    EXPECT_THAT(text, HasSubstr("\nWrite 0x0a fail\n"));
    EXPECT_THAT(text, HasSubstr("\nRead 0x0a fail\n"));
    EXPECT_EQ(fake.i2c.openDescriptors(), 0);
}

TEST_F(I2cOneShotTest, OamErrorInjectionReadsTheWideRegister)
{
    fake.i2c.addDevice(bus, 0x56, 2);
    fake.i2c.setRegister(bus, 0x56, 0xF24E, 0x01);
    uint8_t value = 0xEE;
    EXPECT_TRUE(ReadOamErrorInjection(&event, bus, value));
    EXPECT_EQ(value, 0x01);
    EXPECT_EQ(event, 0);
    EXPECT_EQ(fake.i2c.operations(Kind::setSlave).size(), 0);

    // A failed transfer still counts as done: only the byte tells.
    fake.i2c.removeDevice(bus, 0x56);
    value = 0xEE;
    EXPECT_TRUE(ReadOamErrorInjection(&event, bus, value));
    EXPECT_EQ(value, 0);

    EXPECT_FALSE(ReadOamErrorInjection(&event, 13, value));
    EXPECT_EQ(event, 1);
    std::string text = output();
    EXPECT_THAT(text, HasSubstr("[INFO \"i2c_ops.cpp\":"));
    EXPECT_THAT(text, HasSubstr("] Read byte: 0x1\n"));
    EXPECT_THAT(text, HasSubstr("] Read byte: 0x0\n"));
    EXPECT_EQ(fake.i2c.openDescriptors(), 0);
}

// The fake itself: later tests lean on its faults and its bookkeeping.
TEST(I2cFakeBus, FaultsCountDownAndAbsentDevicesChooseTheirErrno)
{
    FakeI2c i2c;
    i2c.addBus(1);
    int fd = i2c.open("/dev/i2c-1", 0);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(i2c.setSlave(fd, 0x20), 0);
    uint8_t byte = 0;
    EXPECT_EQ(i2c.read(fd, &byte, 1), -1);
    EXPECT_EQ(errno, ENXIO);
    i2c.setAbsentError(1, 0x20, EREMOTEIO);
    EXPECT_EQ(i2c.smbusReadByteData(fd, 0), -EREMOTEIO);

    i2c.addDevice(1, 0x20);
    i2c.inject({Kind::read, 1, std::nullopt, EAGAIN, std::nullopt, 2});
    EXPECT_EQ(i2c.read(fd, &byte, 1), -1);
    EXPECT_EQ(i2c.read(fd, &byte, 1), -1);
    EXPECT_EQ(i2c.read(fd, &byte, 1), 1);
    EXPECT_EQ(i2c.setSlave(fd, 0x80), -1);
    EXPECT_EQ(i2c.open("/dev/i2c-2", 0), -1);
    EXPECT_EQ(i2c.close(fd), 0);
    EXPECT_EQ(i2c.close(fd), -1);
    EXPECT_EQ(i2c.openCount(), 1);
    EXPECT_EQ(i2c.closeCount(), 1);
}

TEST(I2cFakeBus, ThreadsShareTheBusSafely)
{
    FakeI2c i2c;
    i2c.addDevice(0, 0x10);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back([&i2c, t] {
            for (int i = 0; i < 200; ++i)
            {
                int fd = i2c.open("/dev/i2c-0", 0);
                i2c.setSlave(fd, 0x10);
                i2c.smbusWriteByteData(fd, static_cast<uint8_t>(t), 1);
                i2c.close(fd);
            }
        });
    }
    for (auto& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(i2c.openCount(), 800);
    EXPECT_EQ(i2c.closeCount(), 800);
    EXPECT_EQ(i2c.operations().size(), 3200);
}

} // namespace
} // namespace orvane::test
