#pragma once

#include <cstdint>
#include <string>

namespace orvane
{

class ImageProcessStrategy;
class SecureBootService;

// The stored image of `side`: the strategy's active image when `side` is
// the strategy's own, else its inactive one.
const std::string& ImageOfSide(const ImageProcessStrategy& strategy,
                               uint32_t side);

// The version argument of the programming tools: "0x" and eight
// upper-case hexadecimal digits.
std::string VersionText(uint32_t version);

// The version of the AHDR of `side`, as the IFWI and RM tools take it.
std::string SideVersionText(const ImageProcessStrategy& strategy,
                            uint32_t side);

// Runs one programming tool's command line, cut to the room the board
// gives it (`bufferSize` with its terminating zero); the wait status, 0
// for success.
int RunTool(std::string command, size_t bufferSize);

} // namespace orvane
