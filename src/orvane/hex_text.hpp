#pragma once

#include <iomanip>
#include <sstream>
#include <string>

namespace orvane::standby
{

// Register numbers and bytes in texts: two lower-case hex digits.
inline std::string hex2(unsigned value)
{
    std::ostringstream text;
    text << std::hex << std::setw(2) << std::setfill('0') << value;
    return text.str();
}

// Values in texts that carry no width: lower-case hex as it comes.
inline std::string hex(unsigned value)
{
    std::ostringstream text;
    text << std::hex << value;
    return text.str();
}

} // namespace orvane::standby
