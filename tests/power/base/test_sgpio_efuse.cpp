#include "base_test_support.hpp"

#include "orvane/power_monitor.hpp"
#include "utils/i2c_ops.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

using testing::HasSubstr;

ubbsim::Fault sgpio(const std::string& fpga, int bits)
{
    ubbsim::Fault fault;
    fault.kind = "sgpio";
    fault.fpga = fpga;
    fault.value = bits;
    return fault;
}

ubbsim::Fault silent(int bus, int address)
{
    ubbsim::Fault fault;
    fault.kind = "nack";
    fault.bus = bus;
    fault.address = address;
    return fault;
}

ubbsim::Scenario boardWith(std::vector<ubbsim::Fault> faults)
{
    ubbsim::Scenario scenario = warmBoard(true);
    for (ubbsim::Fault& fault : faults)
    {
        faultAt(scenario, fault);
    }
    return scenario;
}

uint8_t status(int bus, uint8_t address)
{
    int event = 0;
    uint8_t value = 0xAA;
    EXPECT_TRUE(I2CSmbusReadBlock(&event, bus, address, 0xE0, &value, 1));
    return value;
}

// Fault bits are cleared by writing them back; 0x08 and 0x80 are no faults
// and stay.
TEST(Sgpio, FaultBitsAreClearedByWritingThemBack)
{
    VirtualBoardFixture fx(
        boardWith({sgpio("ubb", 0x88 | 0x04), sgpio("smc", 0x88)}));
    OrvaneSvcState state;

    EXPECT_EQ(ReadUbbFpgaSgpio(state), 0);
    EXPECT_EQ(status(3, 0x56), 0x00);
    EXPECT_EQ(ReadUbbFpgaSgpio(state), 1);
    EXPECT_EQ(ReadSmcFpgaSgpio(), 0);
    EXPECT_EQ(status(12, 0x23), 0x88);
}

TEST(Sgpio, InitialisationClearsEverySetBit)
{
    VirtualBoardFixture fx(boardWith({sgpio("smc", 0x88), sgpio("ubb", 0x11)}));
    Console console;

    InitSmcFpgaSgpio();
    InitUbbFpgaSgpio();

    EXPECT_EQ(status(12, 0x23), 0x00);
    EXPECT_EQ(status(3, 0x56), 0x00);
    EXPECT_THAT(console.text(), HasSubstr("Success to clear the bits of UBB "
                                          "FPGA SGPIO status. Current status: "
                                          "0x0"));
}

// A fault and an RM that can't be read both end the supervising loop's
// retries.
TEST(RmEfuse, FaultOrMissingRmFailsTheCheck)
{
    ubbsim::Fault efuse;
    efuse.kind = "efuse";
    efuse.oam = 2;
    efuse.value = 0x01;
    struct Case
    {
        std::vector<ubbsim::Fault> faults;
        uint32_t result;
        const char* line;
    };
    const Case cases[] = {
        {{}, 1, ""},
        {{efuse}, 0, "RM2 detect the eFuse state fault,eFuse value 0x1"},
        {{silent(7, 0x56)},
         0,
         "Fail to read RM2(channel 7) slave address 0x56 register address "
         "0xf24b"},
    };
    for (const Case& c : cases)
    {
        VirtualBoardFixture fx(boardWith(c.faults));
        OrvaneSvcState state;
        Console console;
        EXPECT_EQ(CheckRmEfuseFault(state) != 0, c.result != 0) << c.line;
        EXPECT_THAT(console.text(), HasSubstr(c.line));
    }
}

} // namespace
} // namespace orvane::test
