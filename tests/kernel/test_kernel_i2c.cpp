// Every I2C operation form of the daemon through the production backend,
// judged by what the kernel's trace saw on the bus.
#include "guest_board.hpp"

#include "fakes/console_capture.hpp"
#include "logging/i2c_event.hpp"
#include "utils/hex_text.hpp"
#include "utils/i2c_channel.hpp"
#include "utils/i2c_ops.hpp"
#include "utils/platform/platform.hpp"

#include <fcntl.h>

#include <functional>

#include <gtest/gtest.h>

namespace orvane::kernel_test
{
namespace
{

using Bytes = std::vector<uint8_t>;

// SMBus PEC: CRC-8 (x^8 + x^2 + x + 1) over the address byte and the rest.
std::string withPec(uint8_t address, const Bytes& bytes)
{
    uint8_t crc = 0;
    Bytes all{static_cast<uint8_t>(address << 1)};
    all.insert(all.end(), bytes.begin(), bytes.end());
    std::string hex;
    for (uint8_t byte : all)
    {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit)
        {
            crc = static_cast<uint8_t>((crc & 0x80) ? (crc << 1) ^ 0x07
                                                    : crc << 1);
        }
    }
    for (size_t at = 1; at < all.size(); ++at)
    {
        hex += HexText(all[at], 2);
    }
    return hex + HexText(crc, 2);
}

// The seam itself, for the forms that callers use on a descriptor of their
// own: open, address, one call, close.
int32_t onDescriptor(int bus, uint8_t address,
                     const std::function<int32_t(int fd)>& call)
{
    auto& i2c = platform::i2c();
    int fd = i2c.open("/dev/i2c-" + std::to_string(bus), O_RDWR);
    int32_t result = fd < 0 || i2c.setSlave(fd, address) < 0 ? -1 : call(fd);
    i2c.close(fd);
    return result;
}

constexpr int untouched = -1;

struct Form
{
    const char* name;
    // Returns the operation's result, with its event and the bytes it read.
    std::function<bool(int& event, Bytes& read)> run;
    bool ok;
    int event; // as the call left it
    std::vector<std::string> transfers;
    Bytes read;
    std::string console; // a part of what it printed
};

TEST(KernelI2c, EveryOperationFormReachesTheBusAsMeant)
{
    SimChip chip;
    KernelTrace trace(chip);
    int event = 0;
    // Known registers for the reads: the UBB FPGA's 0x91.., an RM's 0xf24b.
    const uint8_t fpga[] = {0x01, 0x02, 0x03};
    ASSERT_TRUE(I2CWriteMemoryBlock(&event, 3, 0x56, 0x91, 3, fpga));
    const uint8_t rm[] = {0x4b, 0xaa, 0xbb};
    ASSERT_TRUE(I2CWriteMemoryBlock(&event, 5, 0x56, 0xf2, 3, rm));
    // A kernel driver holds 0x51 on bus 3, so no process may address it.
    writeText("/sys/bus/i2c/devices/i2c-3/new_device", "dummy 0x51");

    const Form forms[] = {
        {"plain byte write",
         [](int& e, Bytes&) {
             return I2CWriteMemoryByte(&e, 4, 0x25, 0x19, 0xf0);
         },
         true,
         I2C_EVENT_NONE,
         {"4-25 w:19f0"},
         {},
         ""},
        {"plain byte read, the register first",
         [](int& e, Bytes& r) {
             r.resize(1);
             return I2CReadMemoryByte(&e, 4, 0x25, 0x19, r.data());
         },
         true,
         I2C_EVENT_NONE,
         {"4-25 w:19", "4-25 r:f0"},
         {0xf0},
         ""},
        {"SMBus I2C block read",
         [](int& e, Bytes& r) {
             r.resize(3);
             return I2CSmbusReadBlock(&e, 3, 0x56, 0x91, r.data(), 3);
         },
         true,
         I2C_EVENT_NONE,
         {"3-56 w:91 r:010203"},
         {1, 2, 3},
         ""},
        {"retried write with its read-back",
         [](int& e, Bytes& r) {
             uint8_t value = 0x0e;
             r.resize(1);
             return WriteReadWithRetry(&e, 3, 14, 0x4c, 0x3b, 1, &value, 1,
                                       r.data(), true, "EMC");
         },
         true,
         I2C_EVENT_NONE,
         {"14-4c w:3b0e", "14-4c w:3b r:0e"},
         {0x0e},
         ""},
        {"SMBus byte data write",
         [](int& e, Bytes&) {
             return I2CSmbusWriteByteData(&e, 14, 0x27, 0x04, 0x0f, false);
         },
         true,
         I2C_EVENT_NONE,
         {"14-27 w:040f"},
         {},
         ""},
        {"SMBus byte data write with PEC",
         [](int& e, Bytes&) {
             return I2CSmbusWriteByteData(&e, 14, 0x27, 0x04, 0x0f, true);
         },
         true,
         I2C_EVENT_NONE,
         {"14-27 w:" + withPec(0x27, {0x04, 0x0f})},
         {},
         ""},
        {"SMBus byte writes on one descriptor: PEC on for one only",
         [](int& e, Bytes&) {
             I2CChannel channel;
             channel.bus = 2;
             bool ok = channel.OpenChannel(&e) &&
                       channel.SmbusWriteByte(&e, 0x70, 0x04, false) &&
                       channel.SmbusWriteByte(&e, 0x70, 0x08, true) &&
                       channel.SmbusWriteByte(&e, 0x70, 0x01, false);
             platform::i2c().close(channel.fd);
             return ok;
         },
         true,
         I2C_EVENT_NONE,
         {"2-70 w:04", "2-70 w:" + withPec(0x70, {0x08}), "2-70 w:01"},
         {},
         ""},
        {"SMBus byte data read on an open descriptor",
         [](int&, Bytes& r) {
             int32_t value = onDescriptor(3, 0x56, [](int fd) {
                 return platform::i2c().smbusReadByteData(fd, 0x92);
             });
             r.assign(1, static_cast<uint8_t>(value));
             return value >= 0;
         },
         true,
         untouched,
         {"3-56 w:92 r:02"},
         {0x02},
         ""},
        {"SMBus I2C block write on an open descriptor",
         [](int&, Bytes&) {
             const uint8_t block[] = {0x07, 0x08};
             return onDescriptor(3, 0x56, [&](int fd) {
                        return platform::i2c().smbusWriteI2cBlockData(fd, 0x93,
                                                                      2, block);
                    }) >= 0;
         },
         true,
         untouched,
         {"3-56 w:930708"},
         {},
         ""},
        {"I2C_RDWR with a 16-bit offset, one transfer",
         [](int& e, Bytes& r) {
             r.resize(2);
             return I2CReadMemoryBlock16(&e, 5, 0x56, 0xf24b, 2, r.data());
         },
         true,
         I2C_EVENT_NONE,
         {"5-56 w:f24b r:aabb"},
         {0xaa, 0xbb},
         ""},
        {"a write to an address that nothing answers",
         [](int& e, Bytes&) {
             return I2CWriteMemoryByte(&e, 3, 0x50, 0x01, 0x00);
         },
         false,
         I2C_EVENT_WRITE,
         {"3-50 w:0100 ret=-6"},
         {},
         "ret=-1 expected=2 errno=6 (No such device or address)"},
        {"a block read from an address that nothing answers",
         [](int& e, Bytes& r) {
             r.resize(1);
             return I2CSmbusReadBlock(&e, 3, 0x50, 0x63, r.data(), 1);
         },
         false,
         I2C_EVENT_READ,
         {"3-50 w:63 r: ret=-6"},
         {0x00},
         "errno=6 (No such device or address)"},
        {"I2C_RDWR to an address that nothing answers",
         [](int& e, Bytes& r) {
             r.resize(1);
             return I2CReadMemoryBlock16(&e, 0, 0x57, 0xf24b, 1, r.data());
         },
         false,
         I2C_EVENT_NONE,
         {"0-57 w:f24b r: ret=-6"},
         {0x00},
         ""},
        {"an address that a kernel driver holds: errno in hexadecimal",
         [](int& e, Bytes&) {
             return I2CWriteMemoryByte(&e, 3, 0x51, 0x01, 0x00);
         },
         false,
         I2C_EVENT_SLAVE_ADDRESS,
         {},
         {},
         "addr=0x51 errno=10 (Device or resource busy)"},
        {"a bus that the kernel doesn't have",
         [](int& e, Bytes& r) {
             r.resize(1);
             return I2CReadMemoryByte(&e, 13, 0x56, 0x00, r.data());
         },
         false,
         I2C_EVENT_OPEN,
         {},
         {0x00},
         "Failed to open the I2C bus"},
    };
    for (const Form& form : forms)
    {
        SCOPED_TRACE(form.name);
        trace.clear();
        Bytes read;
        bool ok = false;
        event = untouched;
        std::string console =
            test::console([&] { ok = form.run(event, read); });
        EXPECT_EQ(ok, form.ok);
        EXPECT_EQ(event, form.event);
        EXPECT_EQ(trace.texts(), form.transfers);
        EXPECT_EQ(read, form.read);
        EXPECT_NE(console.find(form.console), std::string::npos) << console;
    }
}

} // namespace
} // namespace orvane::kernel_test
