#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace erotctl
{

inline constexpr int exitSuccess = 0;
inline constexpr int exitRefused = 1;
inline constexpr int exitUsage = 2;
inline constexpr int exitLinkFailure = 3;
inline constexpr int exitMalformedReply = 4;

// What one subcommand produced: its exit code, the readable report and the
// same report as one JSON object (null for usage errors, which are text
// only).
struct Result
{
    int exitCode = exitSuccess;
    std::string text;
    nlohmann::ordered_json json;
};

Result usageError(const std::string& message);

// The device answered with status 0. `fields` gain "command" and "status".
Result succeeded(
    const std::string& command, std::string text,
    nlohmann::ordered_json fields = nlohmann::ordered_json::object());

// A negative return is a failure of the link, or a reply that the library
// could not take (-71, -93, -22); a non-zero status a refusal of the
// device.
bool failed(int returned, uint8_t status);
Result failure(const std::string& command, int returned, uint8_t status);

} // namespace erotctl
