#include "secure-boot/retimer_reader.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/secure_boot_board.hpp"
#include "utils/platform/platform.hpp"

#include <span>

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::ERR;
using logging::level::INFO;
namespace board = secure_boot_board;

// The switch positions behind which the retimers of one image sit; empty
// for a name that carries none.
std::span<const uint8_t> SwitchValues(const std::string& name)
{
    if (name == "Retimer")
    {
        return board::retimerSwitch;
    }
    if (name == "Retimer_1")
    {
        return board::retimer1Switch;
    }
    if (name == "Retimer_2")
    {
        return board::retimer2Switch;
    }
    return {};
}

} // namespace

bool ReadRetimerConfig(ImageProcessStrategy& strategy, uint8_t side,
                       const std::string& name)
{
    const auto values = SwitchValues(name);
    if (values.empty())
    {
        ConsoleLog(CRITICAL) << "Invalid component.";
        return false;
    }
    const std::string& image = side == strategy.activeSide
                                   ? strategy.activeImagePath
                                   : strategy.inactiveImagePath;
    for (size_t index = 0; index < values.size(); ++index)
    {
        const int value = values[index];
        ConsoleLog(INFO) << "i2cSwitchValues[" << index << "] = " << value
                         << ", image = " << image;
        if (platform::retimer().ensureRetimerDevImage(value, image) != 0)
        {
            ConsoleLog(ERR) << "Retimer device images do not match the image "
                               "stored in the SMC's secure boot storage";
            return false;
        }
    }
    return true;
}

} // namespace orvane
