#pragma once

#include <string>

namespace orvane
{

// Reads a line by name; a busy line is retried 10,000 times 10 us apart.
bool GetGPIOValue(const std::string& lineName, int& value);

// Drives a line by name; no retry on a busy line.
bool SetGPIOOutput(const std::string& lineName, int value);

} // namespace orvane
