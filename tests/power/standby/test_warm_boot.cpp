// The warm reset test against the reset reason and the UBB FPGA's view of
// the OAMs.

#include "standby_support.hpp"

#include "orvane/standby_power.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class WarmBootTest : public ::testing::Test
{
  protected:
    // Register 0x63 reads low for a present OAM; 0xC0 low for a trip.
    void board(uint32_t reason, uint8_t presentN, uint8_t host, uint8_t module,
               uint8_t ctfN)
    {
        platform.devMem.word = reason;
        platform.i2c.addDevice(3, 0x56);
        platform.i2c.setRegister(3, 0x56, 0x63, presentN);
        platform.i2c.setRegister(3, 0x56, 0x60, host);
        platform.i2c.setRegister(3, 0x56, 0x61, module);
        platform.i2c.setRegister(3, 0x56, 0xC0, ctfN);
    }

    uint32_t check()
    {
        out = console([&] { result = CheckWarmBootPowerGood(state); });
        return result;
    }

    FakePlatform platform;
    OrvaneSvcState state;
    std::string out;
    uint32_t result = 0;
};

TEST_F(WarmBootTest, WarmResetWithEveryPresentOamGood)
{
    board(0x2000, 0x00, 0xFF, 0xFF, 0xFF);
    EXPECT_NE(check(), 0U);
    EXPECT_TRUE(state.ubbFpgaConfigured);
    EXPECT_THAT(out, HasSubstr("AST reset reason: 0x2000"));
    EXPECT_THAT(out, HasSubstr("oam_present = 0x0,host_pwrgd = 0xff,"
                               "module_pwrgd = 0xff,OAM_CTF = 0xff"));
}

TEST_F(WarmBootTest, AnyFittedOamWithoutItsSignalFails)
{
    // Only OAM_3 is fitted. The FPGA keeps its image, so the flag stays
    // set even on failure.
    board(0x1000, 0xF7, 0xF7, 0xFF, 0xFF);
    EXPECT_EQ(check(), 0U);
    EXPECT_TRUE(state.ubbFpgaConfigured);

    board(0x1000, 0xF7, 0xFF, 0xF7, 0xFF);
    EXPECT_EQ(check(), 0U);
    board(0x1000, 0xF7, 0xFF, 0xFF, 0xF7);
    EXPECT_EQ(check(), 0U);
    // Empty slots don't count.
    board(0x1000, 0xF7, 0x08, 0x08, 0x08);
    EXPECT_NE(check(), 0U);
}

TEST_F(WarmBootTest, ConfiguredFpgaWithoutBasePowerIsNoWarmBoot)
{
    // A cold SMC whose FPGA is configured, before base power: all fitted,
    // none good. Base power-on must not take the warm skip here.
    state.ubbFpgaConfigured = true;
    board(0x0001, 0x00, 0x00, 0x00, 0xFF);
    EXPECT_EQ(check(), 0U);
    // Nor is a board without any OAM.
    board(0x1000, 0xFF, 0x00, 0x00, 0xFF);
    EXPECT_EQ(check(), 0U);
}

TEST_F(WarmBootTest, ColdResetOnlyLooksWhenTheFpgaWasConfigured)
{
    board(0x0001, 0x00, 0xFF, 0xFF, 0xFF);
    EXPECT_EQ(check(), 0U);
    EXPECT_THAT(out, HasSubstr("Cold reset detected and UBB FPGA not "
                               "configured yet"));
    EXPECT_THAT(platform.i2c.operations(), IsEmpty());

    state.ubbFpgaConfigured = true;
    EXPECT_NE(check(), 0U);
    EXPECT_THAT(out, Not(HasSubstr("Cold reset")));
}

TEST_F(WarmBootTest, FailedReadNamesItsRegister)
{
    board(0x1000, 0x00, 0xFF, 0xFF, 0xFF);
    platform.i2c.inject({I2cOp::Kind::smbusReadBlock, 3, 0x56, EIO, {}, -1});
    EXPECT_EQ(check(), 0U);
    EXPECT_THAT(out, HasSubstr("Fail to read channel 3 slave address 0x56 "
                               "register address 0x63"));
}

TEST_F(WarmBootTest, ResetReasonReportsWhatItGot)
{
    platform.devMem.result = platform::DevMemResult::openFailed;
    platform.devMem.word = 0x1000;
    uint32_t reason = 1;
    std::string text = console([&] { reason = ReadResetReason(); });
    EXPECT_EQ(reason, 0U);
    EXPECT_THAT(text, HasSubstr("Failed to open /dev/mem"));

    platform.devMem.result = platform::DevMemResult::munmapFailed;
    text = console([&] { reason = ReadResetReason(); });
    EXPECT_EQ(reason, 0x1000U);
    EXPECT_THAT(text, HasSubstr("Failed to munmap"));
}

} // namespace
} // namespace orvane::test
