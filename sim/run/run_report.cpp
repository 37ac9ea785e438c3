#include "run/run_report.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>

namespace ubbsim
{

void writeNeighbourCalls(const std::vector<BusCall>& calls,
                         const std::string& path)
{
    std::ofstream out(path);
    for (const BusCall& call : calls)
    {
        out << nlohmann::json{{"service", call.service},
                              {"member", call.member},
                              {"arguments", call.arguments},
                              {"write", call.propertyWrite}}
                   .dump()
            << "\n";
    }
}

std::vector<RaisedEvent> readEvents(const std::string& eventLogPath)
{
    std::vector<RaisedEvent> events;
    std::ifstream in(eventLogPath);
    std::string line;
    while (std::getline(in, line))
    {
        auto entry = nlohmann::json::parse(line, nullptr, false);
        if (entry.is_discarded() || !entry.is_object())
        {
            continue;
        }
        RaisedEvent event;
        event.at = entry.value("t", 0.0);
        event.call = entry.value("call", "");
        event.id = entry.value("id", "");
        event.level = entry.value("level", 0);
        std::string message = entry.value("message", "");
        auto cut = message.find("] ");
        event.text =
            cut == std::string::npos ? message : message.substr(cut + 2);
        if (entry.contains("args") && entry["args"].is_array() &&
            !entry["args"].empty() && entry["args"][0].is_string())
        {
            event.arg1 = entry["args"][0];
        }
        events.push_back(event);
    }
    return events;
}

std::string readDaemonObjects(const std::string& busAddress)
{
    std::string command = "DBUS_SYSTEM_BUS_ADDRESS='" + busAddress +
                          "' busctl --system --json=short call "
                          "xyz.openbmc_project.Orvane / "
                          "org.freedesktop.DBus.ObjectManager "
                          "GetManagedObjects 2>&1";
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr)
    {
        return R"({"error": "cannot run busctl"})";
    }
    std::string output;
    std::array<char, 4096> buffer{};
    for (size_t n; (n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;)
    {
        output.append(buffer.data(), n);
    }
    int status = ::pclose(pipe);
    auto parsed = nlohmann::json::parse(output, nullptr, false);
    if (status != 0 || parsed.is_discarded())
    {
        nlohmann::json error = {{"error", output}};
        return error.dump(2);
    }
    return parsed.dump(2);
}

int countEvents(const std::vector<RaisedEvent>& events)
{
    return static_cast<int>(
        std::count_if(events.begin(), events.end(),
                      [](const auto& event) { return event.call == "log"; }));
}

std::map<std::string, int> countById(const std::vector<RaisedEvent>& events)
{
    std::map<std::string, int> counts;
    for (const auto& event : events)
    {
        if (event.call == "log" && !event.id.empty())
        {
            ++counts[event.id];
        }
    }
    return counts;
}

} // namespace ubbsim
