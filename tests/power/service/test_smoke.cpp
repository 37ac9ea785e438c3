#include "virtual_board_fixture.hpp"

#include "utils/gpio_lines.hpp"
#include "utils/i2c_ops.hpp"
#include "utils/platform/platform.hpp"

#include <gtest/gtest.h>
using namespace orvane;
TEST(Smoke, RailComesUp)
{
    test::VirtualBoardFixture fx;
    int event = 0;
    ASSERT_TRUE(I2CWriteMemoryByte(&event, 4, 0x25, 0x18, 0x00));
    uint8_t v = 0;
    ASSERT_TRUE(I2CSmbusReadBlock(&event, 4, 0x25, 0x01, &v, 1));
    EXPECT_EQ(v & 0x80, 0);
    ASSERT_TRUE(I2CWriteMemoryByte(&event, 4, 0x25, 0x08, 0x01));
    platform::sleepMilliseconds(100);
    ASSERT_TRUE(I2CSmbusReadBlock(&event, 4, 0x25, 0x01, &v, 1));
    EXPECT_EQ(v & 0x80, 0x80);
    int value = -1;
    EXPECT_TRUE(GetGPIOValue("GPU_BASE_PWR_EN", value));
    EXPECT_EQ(value, 0);
    EXPECT_GT(fx.seconds(), 0.1);
}
