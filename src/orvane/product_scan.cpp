#include "orvane/product_scan.hpp"

#include "detail/board_constants.hpp"
#include "logging/log_line.hpp"
#include "utils/platform/platform.hpp"
#include "utils/sd_bus_call.hpp"

#include <systemd/sd-bus.h>

#include <array>
#include <charconv>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane
{

std::array<std::atomic<int>, 9> productTable{};

namespace
{

using namespace logging::level;

constexpr int scanRounds = 5;
constexpr const char* fruService = "xyz.openbmc_project.FruDevice";
constexpr const char* fruInterface = "xyz.openbmc_project.FruDevice";

struct ProductName
{
    const char* match; // the name with a blank on each side
    int product;
};

constexpr std::array<ProductName, 9> productNames{{
    {" KV10X ", productKV10X},
    {" KV18X ", productKV18X},
    {" KV10XHF ", productKV10XHF},
    {" KV20X ", productKV20X},
    {" KV20 ", productKV20},
    {" KV20DLC ", productKV20DLC},
    {" KV30 ", productKV30},
    {" KV35 ", productKV35},
    {" KV38 ", productKV38},
}};

// Calls one method on a private connection; empty on success, else why not.
template <typename... Args>
std::string callMethod(SdBusCall& call, const char* service, const char* path,
                       const char* interface, const char* member,
                       const char* signature, Args... args)
{
    int r = OpenMethodCall(call, service, path, interface, member);
    if (r >= 0)
    {
        r = AppendArguments(call, signature, args...);
    }
    if (r >= 0)
    {
        r = SendMethodCall(call);
    }
    return r < 0 ? ErrorText(call, r) : std::string();
}

std::optional<std::vector<std::string>> fruPaths()
{
    SdBusCall call;
    std::string failure =
        callMethod(call, "xyz.openbmc_project.ObjectMapper",
                   "/xyz/openbmc_project/object_mapper",
                   "xyz.openbmc_project.ObjectMapper", "GetSubTree", "sias",
                   "/xyz/openbmc_project/FruDevice", 0, 1, fruInterface);
    std::vector<std::string> paths;
    if (failure.empty())
    {
        int r = ReadSubTreePaths(call.reply, paths);
        if (r < 0)
        {
            failure = ErrorText(call, r);
        }
    }
    if (!failure.empty())
    {
        ConsoleLog(ERR) << "failed to make a d-bus get PRODUCT_PRODUCT_NAME "
                           "property, ERROR= "
                        << failure;
        return std::nullopt;
    }
    return paths;
}

std::optional<std::string> productName(const std::string& path)
{
    SdBusCall call;
    std::string failure = callMethod(call, fruService, path.c_str(),
                                     "org.freedesktop.DBus.Properties",
                                     "GetAll", "s", fruInterface);
    std::string name;
    if (failure.empty())
    {
        int r = ReadStringProperty(call.reply, "PRODUCT_PRODUCT_NAME", name);
        if (r < 0)
        {
            failure = ErrorText(call, r);
        }
    }
    if (!failure.empty())
    {
        ConsoleLog(ERR) << "Failed to get FRU product name, ERROR= " << failure;
        return std::nullopt;
    }
    return name;
}

// The OAM number behind "OAM_" in an object path.
std::optional<size_t> oamIndex(std::string_view path)
{
    auto at = path.find("OAM_");
    if (at == std::string_view::npos)
    {
        return std::nullopt;
    }
    std::string_view digits = path.substr(at + 4);
    size_t index = 0;
    auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), index);
    if (error != std::errc() || index >= ubbProductIndex)
    {
        return std::nullopt;
    }
    return index;
}

// One scan of the FRU objects; true when an OAM was among them.
bool scanOnce()
{
    auto paths = fruPaths();
    if (!paths)
    {
        return false;
    }
    bool foundOam = false;
    for (const std::string& path : *paths)
    {
        bool isOam = path.find("OAM") != std::string::npos;
        if (!isOam && path.find("UBB") == std::string::npos)
        {
            continue;
        }
        auto index = isOam ? oamIndex(path) : std::optional(ubbProductIndex);
        if (!index)
        {
            continue;
        }
        auto name = productName(path);
        if (!name)
        {
            continue;
        }
        productTable[*index] = MatchProduct(*name);
        if (isOam)
        {
            foundOam = true;
            ConsoleLog(INFO)
                << "FRU product name for OAM_" << *index << ": " << *name;
        }
        else
        {
            ConsoleLog(INFO) << "FRU product name for UBB: " << *name;
        }
    }
    return foundOam;
}

} // namespace

int MatchProduct(const std::string& productName)
{
    for (const ProductName& entry : productNames)
    {
        if (productName.find(entry.match) != std::string::npos)
        {
            return entry.product;
        }
    }
    return productUnknown;
}

void ScanProducts(OrvaneSvcState&)
{
    // The FRU service may not have read the OAMs' EEPROMs yet.
    for (int round = 0; round < scanRounds; ++round)
    {
        if (platform::shell().system(board::fruRescanCommand) == -1)
        {
            ConsoleLog(ERR) << "Error Rescan FruDevice";
        }
        platform::sleepSeconds(3);
        if (scanOnce())
        {
            return;
        }
    }
    ConsoleLog(ERR) << "No OAM FRU found after " << scanRounds << " retries.";
}

} // namespace orvane
