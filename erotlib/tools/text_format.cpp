#include "text_format.hpp"

#include <array>
#include <cstdio>
#include <utility>

namespace erotctl
{

std::string hexNumber(uint32_t value, int digits)
{
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%0*x", digits, value);
    return text.data();
}

std::string hexBytes(const uint8_t* data, size_t length)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * length);
    for (size_t i = 0; i < length; ++i)
    {
        text += digits[data[i] >> 4];
        text += digits[data[i] & 0x0F];
    }
    return text;
}

std::string componentName(uint16_t id)
{
    static constexpr std::array<std::pair<uint16_t, const char*>, 12> names{{
        {0x0100, "EROT"},
        {0x0104, "APCFG"},
        {0x0200, "SMC"},
        {0x0300, "SMC_FPGA"},
        {0x0400, "UBB_FPGA"},
        {0x0500, "IFWI"},
        {0x0600, "Retimer"},
        {0x0601, "Retimer_1"},
        {0x0602, "Retimer_2"},
        {0x0700, "VR"},
        {0x0800, "RM"},
        {0x0900, "BUNDLE"},
    }};
    for (const auto& [known, name] : names)
    {
        if (known == id)
        {
            return name;
        }
    }
    return "unknown";
}

std::string yesNo(bool value)
{
    return value ? "yes" : "no";
}

std::string sideName(uint32_t side)
{
    if (side == 0)
    {
        return "A";
    }
    return side == 1 ? "B" : "?";
}

std::string printable(const char* text, size_t length)
{
    std::string shown;
    for (size_t i = 0; i < length && text[i] != '\0'; ++i)
    {
        bool plain = text[i] >= 0x20 && text[i] < 0x7F;
        shown += plain ? text[i] : '.';
    }
    return shown;
}

} // namespace erotctl
