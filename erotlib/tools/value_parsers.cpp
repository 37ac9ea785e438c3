#include "value_parsers.hpp"

#include <charconv>

namespace erotctl
{

namespace
{

std::string_view withoutHexPrefix(std::string_view text)
{
    if (text.starts_with("0x") || text.starts_with("0X"))
    {
        text.remove_prefix(2);
    }
    return text;
}

} // namespace

std::optional<uint32_t> parseNumber(std::string_view text, uint32_t max)
{
    std::string_view digits = withoutHexPrefix(text);
    int base = digits.size() == text.size() ? 10 : 16;
    uint32_t value = 0;
    const char* end = digits.data() + digits.size();
    auto [stop, error] = std::from_chars(digits.data(), end, value, base);
    if (digits.empty() || error != std::errc{} || stop != end || value > max)
    {
        return std::nullopt;
    }
    return value;
}

std::optional<uint8_t> parseSide(std::string_view text)
{
    if (text == "A" || text == "a" || text == "0")
    {
        return 0;
    }
    if (text == "B" || text == "b" || text == "1")
    {
        return 1;
    }
    return std::nullopt;
}

std::optional<bool> parseOnOff(std::string_view text)
{
    if (text == "on")
    {
        return true;
    }
    if (text == "off")
    {
        return false;
    }
    return std::nullopt;
}

std::optional<std::vector<uint8_t>> parseHexBytes(std::string_view text,
                                                  size_t length)
{
    text = withoutHexPrefix(text);
    if (text.size() != 2 * length)
    {
        return std::nullopt;
    }
    std::vector<uint8_t> bytes(length);
    for (size_t i = 0; i < length; ++i)
    {
        const char* pair = text.data() + 2 * i;
        auto [stop, error] = std::from_chars(pair, pair + 2, bytes[i], 16);
        if (error != std::errc{} || stop != pair + 2)
        {
            return std::nullopt;
        }
    }
    return bytes;
}

} // namespace erotctl
