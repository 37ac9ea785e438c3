// The eRoT's trace log and its health byte.
#include "read_commands.hpp"
#include "text_format.hpp"

#include <array>
#include <cstdio>
#include <erotlib/erot.hpp>

namespace erotctl
{

namespace
{

// The line of the daemon's console for the same entry, so that the two can
// be compared by eye.
std::string traceLine(uint64_t timestamp, const std::string& tag,
                      uint32_t data1, uint32_t data2, unsigned severity)
{
    std::array<char, 96> line{};
    std::snprintf(line.data(), line.size(), "%12llu %s 0x%08x 0x%08x %u\n",
                  static_cast<unsigned long long>(timestamp), tag.c_str(),
                  data1, data2, severity);
    return line.data();
}

// All four characters, so that the columns stay aligned; a zero or other
// unprintable byte shows as '.'.
std::string tagText(const char (&tag)[4])
{
    std::string text;
    for (char c : tag)
    {
        text += c >= 0x20 && c < 0x7F ? c : '.';
    }
    return text;
}

} // namespace

Result readTraceLog(const Invocation& call)
{
    uint32_t count = 0;
    erot::TraceLogEntry* raw = nullptr;
    bool overflowed = false;
    uint8_t status = 0;
    bool basic = call.has("--basic");
    int r = basic
                ? erot::ErotGetTraceLogBasic(&count, &raw, &overflowed, &status)
                : erot::ErotGetTraceLog(&count, &raw, &overflowed, &status);
    erot::Owned<erot::TraceLogEntry> entries(raw);
    if (failed(r, status))
    {
        return failure(call.command, r, status);
    }
    std::string text = std::to_string(count) + " entries" +
                       (overflowed ? ", the log overflowed" : "") + "\n";
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (uint32_t i = 0; i < count; ++i)
    {
        const erot::TraceLogEntry& entry = entries.get()[i];
        uint64_t timestamp = entry.timestamp;
        std::string tag = tagText(entry.tag);
        uint32_t data1 = entry.data1;
        uint32_t data2 = entry.data2;
        unsigned severity = entry.severity;
        text += traceLine(timestamp, tag, data1, data2, severity);
        list.push_back({{"timestamp", timestamp},
                        {"tag", tag},
                        {"data1", data1},
                        {"data2", data2},
                        {"severity", severity}});
    }
    return succeeded(
        call.command, text,
        {{"count", count}, {"overflowed", overflowed}, {"entries", list}});
}

Result readHealth(const Invocation& call)
{
    std::array<uint8_t, 2> health{};
    uint8_t status = 0;
    int r = erot::ErotHealthStatusPoll(health.data(), &status);
    if (failed(r, status))
    {
        return failure(call.command, r, status);
    }
    // The second byte is a constant of the library, not the device's.
    return succeeded(call.command, "health " + hexNumber(health[0], 2) + "\n",
                     {{"health", hexNumber(health[0], 2)}});
}

} // namespace erotctl
