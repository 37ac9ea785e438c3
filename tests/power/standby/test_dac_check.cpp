// The OAM DAC check of the last standby stage, at the transfer level.

#include "standby_support.hpp"

#include "orvane/hotswap_setup.hpp"
#include "orvane/oam_presence.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class DacTest : public ::testing::Test
{
  protected:
    // OAMs 1 and 2 in their slots (PRSNT low), both DACs at `setting`.
    void SetUp() override
    {
        platform.i2c.addDevice(3, 0x56);
        platform.i2c.setRegister(3, 0x56, 0x63, 0xF9);
        platform.i2c.addDevice(2, 0x70);
        platform.i2c.addDevice(2, 0x60);
    }

    void dac(uint16_t setting)
    {
        platform.i2c.setRegisters(2, 0x60, 0x60,
                                  {0x00, 0x01, 0x00,
                                   static_cast<uint8_t>(setting & 0xFF),
                                   static_cast<uint8_t>(setting >> 8)});
    }

    std::vector<I2cOp> ops(I2cOp::Kind kind)
    {
        return platform.i2c.operations(kind);
    }

    FakePlatform platform;
    OrvaneSvcState state;
};

TEST_F(DacTest, EachProductHoldsItsOwnSetting)
{
    struct Case
    {
        int product;
        uint16_t setting;
        std::vector<uint8_t> update; // empty: left alone
    };
    const std::vector<Case> cases{
        {productKV30, 0xE002, {}}, {productKV30, 0x0604, {0x2E, 0x00}},
        {productKV35, 0x0604, {}}, {productKV35, 0xE002, {0x40, 0x60}},
        {productKV38, 0x1234, {}},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(::testing::Message() << c.product << " " << c.setting);
        productTable[ubbProductIndex] = c.product;
        platform.i2c.clearOperations();
        dac(c.setting);
        EXPECT_TRUE(CheckDacConfig(state));

        std::vector<uint16_t> muxBytes;
        for (const I2cOp& op : ops(I2cOp::Kind::smbusWriteByte))
        {
            muxBytes.push_back(op.command);
        }
        EXPECT_THAT(muxBytes, ElementsAre(0x02, 0x04));
        EXPECT_THAT(ops(I2cOp::Kind::smbusReadBlock), SizeIs(3));
        auto updates = ops(I2cOp::Kind::smbusWriteBlock);
        if (c.update.empty())
        {
            EXPECT_THAT(updates, IsEmpty());
            continue;
        }
        ASSERT_THAT(updates, SizeIs(2));
        EXPECT_EQ(updates[0].command, 0x60);
        EXPECT_EQ(updates[0].bytes, c.update);
    }
    EXPECT_EQ(platform.i2c.openDescriptors(), 0);
    clearProducts();
}

TEST_F(DacTest, UnreachableDacEndsTheWalkButNotTheCheck)
{
    productTable[ubbProductIndex] = productKV35;
    dac(0xE002);
    platform.i2c.inject({I2cOp::Kind::smbusWriteByte, 2, 0x70, EIO, {}, 1});
    EXPECT_TRUE(CheckDacConfig(state));
    EXPECT_THAT(ops(I2cOp::Kind::smbusWriteByte), SizeIs(1));
    EXPECT_THAT(ops(I2cOp::Kind::smbusWriteBlock), IsEmpty());
    EXPECT_EQ(platform.i2c.openDescriptors(), 0);

    // Without the presence reading there is nothing to walk.
    platform.i2c.clearOperations();
    platform.i2c.removeDevice(3, 0x56);
    EXPECT_FALSE(CheckDacConfig(state));
    EXPECT_THAT(ops(I2cOp::Kind::smbusWriteByte), IsEmpty());
    clearProducts();
}

} // namespace
} // namespace orvane::test
