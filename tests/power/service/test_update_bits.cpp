#include "output_capture.hpp"

#include "fakes/fake_platform.hpp"
#include "orvane/rail_engine.hpp"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Kind = I2cOp::Kind;

constexpr int bus = 4;
constexpr uint8_t device = 0x25;
constexpr uint8_t reg = 0x0A;

// Both forms of the read-modify-write behind one signature (the retrying
// one takes its two results the other way round).
struct Form
{
    const char* name;
    bool (*update)(int& code, uint8_t mask, uint8_t& written, uint8_t& readback,
                   bool on, bool verify);
};

const Form forms[] = {
    {"OneTry",
     [](int& code, uint8_t mask, uint8_t& written, uint8_t& readback, bool on,
        bool verify) {
         OrvaneSvcState state;
         return UpdateBits(state, code, bus, device, reg, mask, written,
                           readback, on, verify);
     }},
    {"Retrying",
     [](int& code, uint8_t mask, uint8_t& written, uint8_t& readback, bool on,
        bool verify) {
         OrvaneSvcState state;
         return UpdateBitsRetry(state, code, 3, bus, device, reg, mask,
                                readback, written, on, verify, true, "Bank");
     }},
};

class UpdateBitsTest : public ::testing::TestWithParam<Form>
{
  protected:
    UpdateBitsTest()
    {
        fake.i2c.addDevice(bus, device);
    }

    bool update(uint8_t mask, bool on, bool verify)
    {
        fake.i2c.clearOperations();
        written = readback = 0xAA;
        return GetParam().update(code, mask, written, readback, on, verify);
    }

    size_t count(Kind kind) const
    {
        return fake.i2c.operations(kind).size();
    }

    FakePlatform fake;
    int code = 0;
    uint8_t written = 0;
    uint8_t readback = 0;
};

// The mask is ORed in for on and ANDed as it stands for off.
TEST_P(UpdateBitsTest, ReadModifyWrite)
{
    fake.i2c.setRegister(bus, device, reg, 0x41);
    EXPECT_TRUE(update(0x02, true, true));
    EXPECT_EQ(written, 0x43);
    EXPECT_EQ(readback, 0x43);
    EXPECT_EQ(count(Kind::smbusReadBlock), 2u);
    EXPECT_THAT(fake.i2c.operations(Kind::write)[0].bytes,
                ElementsAre(reg, 0x43));

    EXPECT_TRUE(update(0xBF, false, false));
    EXPECT_EQ(written, 0x03);
    EXPECT_EQ(readback, 0x00);
    EXPECT_EQ(count(Kind::smbusReadBlock), 1u);
}

// A device that drops a bit it was given: the read-back shows what it kept.
TEST_P(UpdateBitsTest, WrittenAndReadBackAreDistinct)
{
    fake.i2c.setObserver([this](const I2cOp& op) {
        if (op.kind == Kind::write && op.bytes.size() == 2)
        {
            fake.i2c.setRegister(bus, device, reg, op.bytes[1] & 0x7F);
        }
    });
    EXPECT_TRUE(update(0x81, true, true));
    EXPECT_EQ(written, 0x81);
    EXPECT_EQ(readback, 0x01);
}

TEST_P(UpdateBitsTest, FailedStepIsNamedAndEndsTheUpdate)
{
    fake.i2c.inject({Kind::smbusReadBlock, bus, device, EIO, std::nullopt, -1});
    std::string out = console([&] { EXPECT_FALSE(update(0x02, true, true)); });
    EXPECT_THAT(out, HasSubstr("] Fail to Read Channel 4 Slave address 0x0025 "
                               "Register 0x0a\n"));
    EXPECT_EQ(count(Kind::write), 0u);

    fake.i2c.clearFaults();
    fake.i2c.inject({Kind::write, bus, device, EIO, std::nullopt, -1});
    out = console([&] { EXPECT_FALSE(update(0x02, true, true)); });
    EXPECT_THAT(out, HasSubstr("] Fail to Write Channel 4 Slave address "
                               "0x0025 Register 0x0a\n"));
    EXPECT_EQ(count(Kind::smbusReadBlock), 1u);
    EXPECT_EQ(code, 4);
}

INSTANTIATE_TEST_SUITE_P(Forms, UpdateBitsTest, ::testing::ValuesIn(forms),
                         [](const auto& info) { return info.param.name; });

// The retrying form rides out short trouble; `check` decides whether the
// failed attempts reach the I2C log.
TEST(UpdateBitsRetry, CheckDecidesWhatIsReported)
{
    for (bool check : {true, false})
    {
        FakePlatform fake;
        fake.i2c.addDevice(bus, device);
        fake.i2c.inject({Kind::write, bus, device, EIO, std::nullopt, 2});
        OrvaneSvcState state;
        int code = 0;
        uint8_t readback = 0;
        uint8_t written = 0;

        console([&] {
            EXPECT_TRUE(UpdateBitsRetry(state, code, 3, bus, device, reg, 0x02,
                                        readback, written, true, true, check,
                                        "Expander bank"));
        });
        EXPECT_EQ(fake.i2c.operations(Kind::write).size(), 3u);
        auto records = fake.zellib.calls(ZellibCall::Kind::i2cLog);
        if (!check)
        {
            EXPECT_TRUE(records.empty());
            continue;
        }
        ASSERT_EQ(records.size(), 2u);
        EXPECT_EQ(records[0].i2c->message, "Expander bank failure. Retry 1");
        EXPECT_TRUE(records[1].i2c->writeFailed);
    }
}

} // namespace
} // namespace orvane::test
