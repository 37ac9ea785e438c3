#include "orvane/oam_presence.hpp"

#include "detail/board_constants.hpp"
#include "logging/log_line.hpp"
#include "orvane/product_scan.hpp"
#include "utils/hex_text.hpp"
#include "utils/i2c_ops.hpp"
#include "utils/platform/platform.hpp"

#include <bit>
#include <filesystem>
#include <fstream>
#include <string>

namespace orvane
{

namespace
{

using namespace board;
using namespace logging::level;

constexpr size_t oamCount = 8;

bool writeText(const std::string& absolute, const std::string& text)
{
    std::ofstream file(platform::path(absolute), std::ios::trunc);
    file << text;
    file.close();
    if (!file)
    {
        ConsoleLog(ERR) << "Fail to write " << absolute;
        return false;
    }
    return true;
}

bool makeDirectory(const std::string& absolute)
{
    std::error_code error;
    std::filesystem::create_directories(platform::path(absolute), error);
    if (error)
    {
        ConsoleLog(ERR) << "Fail to create " << absolute << ": "
                        << error.message();
        return false;
    }
    return true;
}

} // namespace

bool CheckMixedProducts()
{
    bool acceptable = true;
    bool seen = false;
    int reference = productUnknown;
    for (size_t n = 0; n < oamCount; ++n)
    {
        const int product = productTable[n];
        if (product == productUnknown)
        {
            ConsoleLog(INFO) << "OAM_" << n
                             << ": Product name is Unknown (physical or FRU "
                                "missing), skipping to next OAM.";
            continue;
        }
        // The first known OAM sets the reference and is not held against
        // the UBB.
        if (!seen)
        {
            seen = true;
            reference = product;
            continue;
        }
        if (product != reference)
        {
            ConsoleLog(ERR) << "OAM_" << n << ": Mixed OAM is detected.";
            acceptable = false;
        }
        if (product != productTable[ubbProductIndex])
        {
            ConsoleLog(ERR) << "OAM_" << n << ": Different product with UBB.";
            acceptable = false;
        }
    }
    if (!seen)
    {
        ConsoleLog(INFO) << "No valid OAM products found (all Unknown), "
                            "skipping mixed OAM validation.";
    }
    return acceptable;
}

void WriteOamPresence(OrvaneSvcState&)
{
    int event = 0;
    uint8_t reading = 0;
    if (!I2CSmbusReadBlock(&event, fpgaChannel, fpgaAddress, prsntRegister,
                           &reading, 1))
    {
        ConsoleLog(WARNING) << "OAM Detect: Failed to read OAM PRSNT from UBB";
        return;
    }
    const auto mask = static_cast<uint8_t>(~reading);
    if (!makeDirectory("/run/oam") ||
        !writeText("/run/oam/oamcount",
                   std::to_string(std::popcount(mask)) + "\n") ||
        !writeText("/run/oam/oammask", HexText(mask, 2) + "\n") ||
        !makeDirectory("/run/oam/oampresent"))
    {
        return;
    }
    // Files of OAMs that have gone stay: readers only look for present ones.
    for (size_t n = 0; n < oamCount; ++n)
    {
        if ((mask & (1U << n)) != 0)
        {
            writeText("/run/oam/oampresent/" + std::to_string(n), "");
        }
    }
}

void DetectPhysicalMissing(OrvaneSvcState&)
{
    ConsoleLog(INFO) << "OAM Physical Missing detection starting.";
    int event = 0;
    uint8_t value = 0;
    if (!WriteReadWithRetry(
            &event, tries, fpgaChannel, fpgaAddress, prsntRegister, 0, nullptr,
            1, &value, true,
            "Power Sequence: Read OAM PRSNT signal to detect OAM"))
    {
        ConsoleLog(ERR) << "Fail to read OAM PRSNT signal to detect OAM";
        return;
    }
    ConsoleLog(INFO) << "Read OAM PRSNT signal to detect OAM. Value: 0x"
                     << HexText(value);
    if (value == 0)
    {
        ConsoleLog(INFO) << "All the OAM are installed.";
    }
    for (size_t n = 0; n < oamCount; ++n)
    {
        if ((value & (1U << n)) != 0)
        {
            NvEvent(CRITICAL, "Base.1.8.1.ResourceNotFound",
                    "GPU,OAM_" + std::to_string(n), "", "")
                << "OAM" << n << " physically missing.";
        }
    }
    ConsoleLog(INFO) << "OAM Physical Missing detection has been done.";
}

} // namespace orvane
