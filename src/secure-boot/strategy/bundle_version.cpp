#include "secure-boot/bundle_version.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/secure_boot_board.hpp"
#include "utils/hex_text.hpp"
#include "utils/i2c_ops.hpp"

#include <array>
#include <string>

namespace orvane
{

using logging::level::ERR;
using logging::level::INFO;

void WriteBundleVersion(uint32_t version)
{
    namespace board = secure_boot_board;
    const std::array<uint8_t, 4> bytes{static_cast<uint8_t>(version >> 24),
                                       static_cast<uint8_t>(version >> 16),
                                       static_cast<uint8_t>(version >> 8),
                                       static_cast<uint8_t>(version)};
    std::array<uint8_t, 5> tail{board::bundleVersionPrefix[1]};
    std::string text;
    for (size_t i = 0; i < bytes.size(); ++i)
    {
        tail[i + 1] = bytes[i];
        text += (i == 0 ? "0x" : " 0x") + HexText(bytes[i], 2);
    }
    for (size_t oam = 0; oam < board::rmBus.size(); ++oam)
    {
        // One plain write: the first prefix byte goes out as the register.
        int event = 0;
        if (I2CWriteMemoryBlock(&event, board::rmBus[oam], board::rmAddress,
                                board::bundleVersionPrefix[0], tail.size(),
                                tail.data()))
        {
            ConsoleLog(INFO)
                << "Successfully write bundle version into RM register on OAM "
                << oam << ". Bundle version:" << text;
        }
        else
        {
            ConsoleLog(ERR)
                << "Failed to write bundle version into RM register on OAM "
                << oam << ".";
        }
    }
}

} // namespace orvane
