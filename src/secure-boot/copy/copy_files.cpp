#include "secure-boot/copy_files.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/hash_file.hpp"
#include "utils/platform/platform.hpp"

#include <array>
#include <filesystem>

namespace orvane
{

namespace
{

namespace fs = std::filesystem;
using logging::level::INFO;

using Digest = std::array<uint8_t, 48>;

std::string HexDigest(const uint8_t* digest)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < std::tuple_size_v<Digest>; ++i)
    {
        text += digits[digest[i] >> 4];
        text += digits[digest[i] & 0x0f];
    }
    return text;
}

} // namespace

void LogDifferentHashes(const uint8_t* active, const uint8_t* inactive)
{
    ConsoleLog(INFO) << "Active Hash(" << HexDigest(active)
                     << ") Inactive Hash(" << HexDigest(inactive)
                     << ") is different.";
}

bool HashesDiffer(const std::string& active, const std::string& inactive)
{
    // A file that can't be hashed leaves its digest zero, so a missing
    // inactive file differs from any real one.
    Digest activeDigest{};
    Digest inactiveDigest{};
    HashFileQuiet(active, activeDigest);
    HashFileQuiet(inactive, inactiveDigest);
    if (activeDigest == inactiveDigest)
    {
        return false;
    }
    LogDifferentHashes(activeDigest.data(), inactiveDigest.data());
    return true;
}

bool CopyImageFile(const std::string& active, const std::string& inactive)
{
    ConsoleLog(INFO) << "Copy " << active << " to " << inactive;
    try
    {
        return fs::copy_file(platform::path(active), platform::path(inactive),
                             fs::copy_options::overwrite_existing);
    }
    catch (const fs::filesystem_error& error)
    {
        throw FirmwareCopyError(active, inactive, error.what());
    }
}

bool hashAndCopy(const std::string& active, const std::string& inactive)
{
    return !HashesDiffer(active, inactive) || CopyImageFile(active, inactive);
}

bool copyIfDifferent(const std::string& active, const std::string& inactive)
{
    std::error_code error;
    if (!fs::exists(platform::path(active), error))
    {
        ConsoleLog(INFO) << "Skipping copy because " << active
                         << " does not exist.";
        if (fs::exists(platform::path(inactive), error))
        {
            ConsoleLog(INFO) << "Removing " << inactive;
            fs::remove(platform::path(inactive), error);
        }
        return true;
    }
    return hashAndCopy(active, inactive);
}

} // namespace orvane
