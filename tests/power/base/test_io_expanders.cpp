#include "base_test_support.hpp"

#include "fakes/fake_platform.hpp"
#include "orvane/io_expanders.hpp"
#include "orvane/oam_presence.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using testing::HasSubstr;
using Bytes = std::vector<uint8_t>;
using Writes = std::vector<Bytes>;

constexpr int bus = 14;
constexpr uint8_t linkConfig = 0x20;
constexpr uint8_t moduleId = 0x27;

// Open drain, then every bank an output: five at 0x20, four at 0x27.
Writes setUp(uint8_t address)
{
    Writes expected{
        {0x28, static_cast<uint8_t>(address == moduleId ? 0x80 : 0x00)}};
    const uint8_t banks = address == moduleId ? 4 : 5;
    for (uint8_t reg = 0x18; reg < 0x18 + banks; ++reg)
    {
        expected.push_back({reg, 0x00});
    }
    return expected;
}

Writes withOutputs(Writes writes, const Bytes& pattern, size_t width = 1)
{
    for (size_t i = 0; i < pattern.size(); ++i)
    {
        Bytes write{static_cast<uint8_t>(0x08 + i), pattern[i]};
        write.resize(1 + width, 0x00);
        writes.push_back(write);
    }
    return writes;
}

// The expanders on a fake bus, with the writes that each one took.
class IoExpanders : public testing::Test
{
  protected:
    IoExpanders()
    {
        fake.i2c.addDevice(bus, linkConfig);
        fake.i2c.addDevice(bus, moduleId);
    }

    Writes taken(uint8_t address) const
    {
        Writes writes;
        for (const I2cOp& op : fake.i2c.operations(I2cOp::Kind::write))
        {
            if (op.address == address && op.result > 0)
            {
                writes.push_back(op.bytes);
            }
        }
        return writes;
    }

    FakePlatform fake;
    OrvaneSvcState state;
    Console console;
};

TEST_F(IoExpanders, EightOamsGetTheTopologyOfTheProduct)
{
    const Bytes kv35{0x63, 0x18, 0xC6, 0x31, 0x8C};
    const Bytes kv10{0x52, 0x94, 0xA5, 0x29, 0x4A};
    for (int product : {productKV30, productKV35, productKV38, productKV20})
    {
        fake.i2c.clearOperations();
        UbbProduct ubb(product);
        EXPECT_EQ(ConfigureIoExpanders(state, 0xFF), 1U);
        EXPECT_EQ(taken(linkConfig),
                  withOutputs(setUp(linkConfig),
                              product == productKV20 ? kv10 : kv35));
        // Never 0x1C or 0x0C at the module ID expander.
        EXPECT_EQ(taken(moduleId),
                  withOutputs(setUp(moduleId), {0x08, 0x4C, 0x2A, 0x6E}));
    }
}

TEST_F(IoExpanders, UnknownProductWithEightOamsDrivesNoOutput)
{
    UbbProduct ubb(productUnknown);
    EXPECT_EQ(ConfigureIoExpanders(state, 0xFF), 0U);
    EXPECT_EQ(taken(linkConfig), setUp(linkConfig));
    EXPECT_EQ(taken(moduleId), setUp(moduleId));
    EXPECT_THAT(console.text(), HasSubstr("Unable to determine product"));
}

// Fewer than eight: zeros whatever the product. A link config write is two
// bytes, the second the low byte of the transfer's clean event code.
TEST_F(IoExpanders, FewerOamsDriveZeros)
{
    UbbProduct ubb(productUnknown);
    EXPECT_EQ(ConfigureIoExpanders(state, 0x7F), 1U);
    EXPECT_EQ(taken(linkConfig),
              withOutputs(setUp(linkConfig), Bytes(5, 0x00), 2));
    EXPECT_EQ(taken(moduleId), withOutputs(setUp(moduleId), Bytes(4, 0x00)));
}

TEST_F(IoExpanders, FailedWriteClearsTheResultButTheWalkGoesOn)
{
    UbbProduct ubb(productKV35);
    // All three tries of the very first write.
    fake.i2c.inject(
        {I2cOp::Kind::write, bus, linkConfig, EIO, std::nullopt, 3});
    EXPECT_EQ(ConfigureIoExpanders(state, 0xFF), 0U);

    EXPECT_EQ(taken(linkConfig).size(), 5U + 5U);
    EXPECT_EQ(taken(moduleId).size(), 5U + 4U);
    EXPECT_THAT(console.text(), HasSubstr("Fail to set all banks 0x20 register "
                                          "0x28 to open drain."));
    auto records = fake.zellib.calls(ZellibCall::Kind::i2cLog);
    ASSERT_EQ(records.size(), 3U);
    EXPECT_THAT(records.back().message,
                HasSubstr("IO_Expander set all banks 0x20 register 0x28 to "
                          "open drain failure. Retry 3"));
}

} // namespace
} // namespace orvane::test
