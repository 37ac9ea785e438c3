// How the outcome of an exchange becomes an exit code and a report.
#include "result.hpp"

#include "text_format.hpp"

#include <cerrno>
#include <cstring>

namespace erotctl
{

Result usageError(const std::string& message)
{
    return {exitUsage, "erotctl: " + message + "\nTry 'erotctl --help'.\n",
            nullptr};
}

Result succeeded(const std::string& command, std::string text,
                 nlohmann::ordered_json fields)
{
    nlohmann::ordered_json json = {{"command", command}, {"status", 0}};
    json.update(fields);
    return {exitSuccess, std::move(text), std::move(json)};
}

bool failed(int returned, uint8_t status)
{
    return returned < 0 || status != 0;
}

Result failure(const std::string& command, int returned, uint8_t status)
{
    nlohmann::ordered_json json = {{"command", command}};
    if (returned < 0)
    {
        // The status byte means nothing when no well-formed answer came.
        std::string error = std::strerror(-returned);
        json["status"] = nullptr;
        json["return"] = returned;
        json["error"] = error;
        // The device answered, but not in a form the library accepts: the
        // link works, the reply (or what was asked of it) is at fault.
        bool malformed = returned == -EPROTO || returned == -EPROTONOSUPPORT ||
                         returned == -EINVAL;
        return {malformed ? exitMalformedReply : exitLinkFailure,
                command +
                    (malformed ? ": malformed reply: " : ": link failure: ") +
                    error + " (" + std::to_string(returned) + ")\n",
                std::move(json)};
    }
    std::string error = "status " + hexNumber(status, 2);
    json["status"] = status;
    json["error"] = error;
    return {exitRefused, command + ": refused by the device, " + error + "\n",
            std::move(json)};
}

} // namespace erotctl
