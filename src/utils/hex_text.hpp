#pragma once

#include <iomanip>
#include <sstream>
#include <string>

namespace orvane
{

// Register numbers and values in texts: lower-case hex digits, zero-padded
// to `width` (0: as many as the value takes), without a prefix.
inline std::string HexText(unsigned value, int width = 0)
{
    std::ostringstream text;
    text << std::hex << std::setw(width) << std::setfill('0') << value;
    return text.str();
}

} // namespace orvane
