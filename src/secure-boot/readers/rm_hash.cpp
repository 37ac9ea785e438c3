#include "secure-boot/rm_hash.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/hash_file.hpp"
#include "secure-boot/secure_boot_board.hpp"
#include "utils/hex_text.hpp"
#include "utils/platform/platform.hpp"
#include "utils/sd_bus_call.hpp"

#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

// The RM service's methods, as this daemon calls them:
//   UpdateAllFuncAreaAddr()            -> b  done
//   GetSHA256HASH(u oam)               -> b  done, ay  SHA-256 of its RM image
namespace orvane
{

namespace
{

using logging::level::ERR;
using logging::level::INFO;
namespace board = secure_boot_board;

constexpr size_t digestSize = 32;
constexpr uint32_t oamCount = 8;
constexpr uint32_t allOams = 0xFF;

int CallRm(SdBusCall& call, const char* member)
{
    return OpenMethodCall(call, std::string(board::rmService).c_str(),
                          std::string(board::rmObject).c_str(),
                          std::string(board::rmInterface).c_str(), member);
}

bool UpdateFunctionAreas()
{
    SdBusCall call;
    int done = 0;
    int r = CallRm(call, "UpdateAllFuncAreaAddr");
    if (r >= 0)
    {
        r = SendMethodCall(call);
    }
    if (r >= 0)
    {
        r = sd_bus_message_read(call.reply, "b", &done);
    }
    if (r < 0)
    {
        ConsoleLog(ERR)
            << "Failed to update function area address, method call error.";
        return false;
    }
    if (done == 0)
    {
        ConsoleLog(ERR)
            << "Failed to update function area address, eStatus=false";
        return false;
    }
    return true;
}

// The digest that one OAM's RM reports; false, with its line, when it gave
// none.
bool AskDigest(uint32_t oam, std::vector<uint8_t>& digest)
{
    SdBusCall call;
    int r = CallRm(call, "GetSHA256HASH");
    if (r >= 0)
    {
        r = AppendArguments(call, "u", oam);
    }
    if (r >= 0)
    {
        r = SendMethodCall(call);
    }
    if (r < 0)
    {
        ConsoleLog(ERR) << "Failed to get RM HASH, method call error.";
        return false;
    }
    int done = 0;
    const void* bytes = nullptr;
    size_t size = 0;
    r = sd_bus_message_read(call.reply, "b", &done);
    if (r >= 0)
    {
        r = sd_bus_message_read_array(call.reply, 'y', &bytes, &size);
    }
    if (r < 0)
    {
        ConsoleLog(ERR) << "failed to make a d-bus call GetSHA256HASH, ERROR= "
                        << ErrorText(call, r);
        return false;
    }
    if (done == 0)
    {
        ConsoleLog(ERR) << "Failed to get RM HASH, eStatus=false";
        return false;
    }
    const auto* first = static_cast<const uint8_t*>(bytes);
    digest.assign(first, first + size);
    return true;
}

std::string DigestText(const std::vector<uint8_t>& digest)
{
    std::string text;
    for (size_t i = 0; i < digestSize; ++i)
    {
        text += HexText(digest[i], 2);
    }
    return text;
}

} // namespace

bool CheckRmHash(SecureBootService&, const std::string& imagePath)
{
    std::ifstream file(platform::path(imagePath), std::ios::binary);
    if (!file)
    {
        ConsoleLog(ERR) << "Failed to open file [" << imagePath << "]";
        return false;
    }
    const std::vector<uint8_t> image((std::istreambuf_iterator<char>(file)),
                                     std::istreambuf_iterator<char>());
    std::cout << "RM image size = " << image.size() << std::endl;
    const std::string expected = Sha256Text(image.data(), image.size());
    std::cout << "Calculate RM image Sha256 = " << expected << std::endl;

    if (!UpdateFunctionAreas())
    {
        return false;
    }
    uint32_t matching = 0;
    for (uint32_t oam = 0; oam < oamCount; ++oam)
    {
        // Absent modules are asked too: the check wants all eight.
        std::vector<uint8_t> digest;
        if (!AskDigest(oam, digest))
        {
            continue;
        }
        if (digest.size() < digestSize)
        {
            ConsoleLog(ERR)
                << "Failed to copy RM HASH, hash.size()=" << digest.size();
            return false;
        }
        const std::string text = DigestText(digest);
        ConsoleLog(INFO) << "OAM" << oam << " i2c_output_str =" << text;
        if (text == expected)
        {
            ConsoleLog(INFO) << "OAM" << oam << " RM sha256 pass";
            matching |= 1U << oam;
        }
        else
        {
            ConsoleLog(ERR) << "OAM" << oam << " RM sha256 hash does not match";
            matching &= ~(1U << oam);
        }
    }
    return matching == allOams;
}

} // namespace orvane
