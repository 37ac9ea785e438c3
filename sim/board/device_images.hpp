#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace ubbsim
{

// What the board's non-volatile devices hold, and the SMC's file system
// root, under which Linux shows a flash that its SPI driver found. A board
// that was given none has blank devices and shows no flash.
struct DeviceImages
{
    std::string root;
    std::array<std::vector<uint8_t>, 2> ubbFpgaFlash; // side A, side B
    std::array<std::vector<uint8_t>, 8> ifwiFlash;    // by OAM
    std::array<std::vector<uint8_t>, 8> retimers; // by switch bit: 0x01 is [0]
};

} // namespace ubbsim
