#include "board/pmbus_device.hpp"

#include <algorithm>

namespace ubbsim
{

namespace
{

const std::vector<uint8_t> none;

} // namespace

// Readings in LINEAR11 or as raw counts matter to no one on the board; they
// only need to be there and stable. The status word shows a fault latched
// from power-up until somebody clears it.
PmbusDevice::Commands PmbusDevice::regulator()
{
    return {
        {page, {0x00}},
        {0x01, {0x80}},       // OPERATION: on
        {statusByte, {0x02}}, // CML: the latched fault
        {statusWord, {0x02, 0x00}},
        {0x7E, {0x00}},       // STATUS_CML
        {0x88, {0x30, 0xD3}}, // READ_VIN
        {0x8B, {0x33, 0x03}}, // READ_VOUT
        {0x8C, {0x40, 0xDA}}, // READ_IOUT
        {0x8D, {0x2D, 0xE8}}, // READ_TEMPERATURE_1
        {0x98, {0x22}},       // PMBUS_REVISION
    };
}

PmbusDevice::Commands PmbusDevice::hotswapController()
{
    Commands commands = regulator();
    commands[0xD1] = {0x00};
    commands[0xD3] = {0x00, 0x00};
    commands[0xD5] = {0x00, 0x00};
    return commands;
}

PmbusDevice::PmbusDevice(Commands commands) : commands(std::move(commands))
{}

int PmbusDevice::write(const std::vector<uint8_t>& data)
{
    if (data.empty())
    {
        return 0;
    }
    selected = data[0];
    if (selected == clearFaults)
    {
        ++clears;
        for (auto& [code, bytes] : commands)
        {
            if (code >= statusByte && code <= 0x80)
            {
                std::fill(bytes.begin(), bytes.end(), 0);
            }
        }
        return 0;
    }
    if (data.size() > 1)
    {
        commands[selected].assign(data.begin() + 1, data.end());
    }
    return 0;
}

int PmbusDevice::read(std::vector<uint8_t>& data)
{
    const std::vector<uint8_t>& bytes = command(selected);
    for (size_t i = 0; i < data.size(); ++i)
    {
        data[i] = i < bytes.size() ? bytes[i] : 0xFF;
    }
    return 0;
}

const std::vector<uint8_t>& PmbusDevice::command(uint8_t code) const
{
    auto found = commands.find(code);
    return found == commands.end() ? none : found->second;
}

} // namespace ubbsim
