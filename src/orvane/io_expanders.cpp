#include "orvane/io_expanders.hpp"

#include "detail/board_constants.hpp"
#include "logging/log_line.hpp"
#include "orvane/product_scan.hpp"
#include "utils/hex_text.hpp"
#include "utils/i2c_ops.hpp"

#include <array>
#include <cstddef>
#include <iomanip>
#include <new>
#include <span>
#include <sstream>
#include <string>

namespace orvane
{

namespace
{

using board::expanderChannel;
using board::linkConfigAddress;
using board::moduleIdAddress;
using board::tries;
using logging::level::ERR;
using logging::level::INFO;

constexpr uint8_t openDrainRegister = 0x28;
constexpr uint8_t allOams = 0xFF;

// The module ID expander has one bank fewer than the link config one.
constexpr size_t linkConfigBanks = 5;
constexpr size_t moduleIdBanks = 4;

using Registers = std::array<uint8_t, linkConfigBanks>;

constexpr std::array<uint8_t, linkConfigBanks> kv35LinkConfig{0x63, 0x18, 0xC6,
                                                              0x31, 0x8C};
constexpr std::array<uint8_t, linkConfigBanks> kv10LinkConfig{0x52, 0x94, 0xA5,
                                                              0x29, 0x4A};
constexpr std::array<uint8_t, moduleIdBanks> moduleIdPattern{0x08, 0x4C, 0x2A,
                                                             0x6E};

// One value byte and the transfer's event code laid out back to back, the
// code right behind the value. Every transfer of the walk shares them. The
// 1G link config writes send two bytes from the value, so their second
// byte is the low byte of the event code at the moment the bytes leave:
// the OAMs have always been driven that way, and it stays so.
class ValueAndEvent
{
  public:
    ValueAndEvent() : code(new (storage.data() + sizeof(int)) int(0))
    {}
    ValueAndEvent(const ValueAndEvent&) = delete;
    ValueAndEvent& operator=(const ValueAndEvent&) = delete;

    uint8_t* bytes()
    {
        return storage.data() + sizeof(int) - 1;
    }
    int* event()
    {
        return code;
    }

  private:
    alignas(int) std::array<uint8_t, 2 * sizeof(int)> storage{};
    int* code;
};

// One write of `length` bytes from the shared value; false when it failed.
bool write(ValueAndEvent& slot, uint8_t address, uint8_t reg, uint8_t length,
           const std::string& label)
{
    return WriteReadWithRetry(slot.event(), tries, expanderChannel, address,
                              reg, length, slot.bytes(), 0, nullptr, true,
                              label);
}

bool setOpenDrain(ValueAndEvent& slot, uint8_t address, uint8_t value)
{
    const std::string where = "all banks 0x" + HexText(address, 2) +
                              " register 0x" + HexText(openDrainRegister, 2) +
                              " to open drain";
    slot.bytes()[0] = value;
    if (write(slot, address, openDrainRegister, 1,
              "Power Sequence Base Power IO_Expander set " + where))
    {
        return true;
    }
    ConsoleLog(ERR) << "Fail to set " << where << ".";
    return false;
}

// Every bank of the first `count` registers becomes an output.
bool setOutputs(ValueAndEvent& slot, uint8_t address,
                const Registers& registers, size_t count)
{
    bool result = true;
    for (size_t i = 0; i < count; ++i)
    {
        const std::string where = "bank 0x" + HexText(address, 2) +
                                  " register 0x" + HexText(registers[i], 2) +
                                  " to output";
        slot.bytes()[0] = 0x00;
        if (!write(slot, address, registers[i], 1,
                   "Power Sequence Base Power IO_Expander set " + where))
        {
            ConsoleLog(ERR) << "Fail to set " << where << ".";
            result = false;
        }
    }
    return result;
}

// Writes pattern[i], or zero when no pattern is given, to each of the first
// `count` registers, `length` bytes each.
bool drive(ValueAndEvent& slot, uint8_t address, const Registers& registers,
           size_t count, std::span<const uint8_t> pattern, uint8_t length,
           const std::string& label, const char* failure)
{
    bool result = true;
    for (size_t i = 0; i < count; ++i)
    {
        slot.bytes()[0] = pattern.empty() ? uint8_t{0x00} : pattern[i];
        if (!write(slot, address, registers[i], length, label))
        {
            ConsoleLog(ERR) << failure;
            result = false;
        }
    }
    return result;
}

// The link config pattern of the UBB's product; empty for an unknown
// product, whose topology can't be chosen.
std::span<const uint8_t> linkConfigFor(int product)
{
    if (product == productKV30 || product == productKV35 ||
        product == productKV38)
    {
        ConsoleLog(INFO) << "Using KV35 topology";
        return kv35LinkConfig;
    }
    if (product == productUnknown)
    {
        ConsoleLog(ERR) << "Unable to determine product from the FRU, "
                           "aborting IO expander setup";
        return {};
    }
    ConsoleLog(INFO) << "Using KV10/20 topology";
    return kv10LinkConfig;
}

bool drive8G(ValueAndEvent& slot, const Registers& registers,
             std::span<const uint8_t> linkConfig)
{
    bool result =
        drive(slot, linkConfigAddress, registers, linkConfigBanks, linkConfig,
              1, "Power Sequence Base Power IO_Expander Driving Link Config 8G",
              "Fail to drive link configuration 8G.");
    ConsoleLog(INFO) << "Driving Module ID 8G";
    result &=
        drive(slot, moduleIdAddress, registers, moduleIdBanks, moduleIdPattern,
              1, "Power Sequence Base Power IO_Expander Driving Module ID 8G",
              "Fail to drive module ID 8G.");
    return result;
}

// Fewer than eight OAMs: every bank low, whatever the product.
bool drive1G(ValueAndEvent& slot, const Registers& registers)
{
    ConsoleLog(INFO) << "Driving Link Config 1G";
    bool result =
        drive(slot, linkConfigAddress, registers, linkConfigBanks, {}, 2,
              "Power Sequence Base Power IO_Expander Driving Link Config 1G",
              "Fail to drive link configuration 1G.");
    ConsoleLog(INFO) << "Driving Module ID 1G";
    result &=
        drive(slot, moduleIdAddress, registers, moduleIdBanks, {}, 1,
              "Power Sequence Base Power IO_Expander Driving Module ID 1G",
              "Fail to drive module ID 1G.");
    return result;
}

} // namespace

uint32_t ConfigureIoExpanders(OrvaneSvcState& /*state*/, uint8_t presentMask)
{
    ValueAndEvent slot;
    Registers registers{0x18, 0x19, 0x1A, 0x1B, 0x1C};

    // A failed write only clears the result: every later one still runs.
    bool result = setOpenDrain(slot, linkConfigAddress, 0x00);
    result &= setOutputs(slot, linkConfigAddress, registers, linkConfigBanks);
    result &= setOpenDrain(slot, moduleIdAddress, 0x80);
    result &= setOutputs(slot, moduleIdAddress, registers, moduleIdBanks);

    // From the direction registers to the output registers of the banks.
    registers[0] = 0x08;
    for (size_t i = 1; i < registers.size(); ++i)
    {
        registers[i] &= 0x0F;
    }

    if (presentMask != allOams)
    {
        result &= drive1G(slot, registers);
        return result ? 1 : 0;
    }
    std::span<const uint8_t> linkConfig =
        linkConfigFor(productTable[ubbProductIndex].load());
    if (linkConfig.empty())
    {
        return 0;
    }
    result &= drive8G(slot, registers, linkConfig);
    return result ? 1 : 0;
}

} // namespace orvane
