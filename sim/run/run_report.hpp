#pragma once

#include "neighbours/call_log.hpp"

#include <map>
#include <string>
#include <vector>

namespace ubbsim
{

// What the logging library received, in order: message id, level, first
// argument and the text without its prefix.
struct RaisedEvent
{
    double at = 0;
    std::string call;
    std::string id;
    int level = 0;
    std::string arg1;
    std::string text;
};

std::vector<RaisedEvent> readEvents(const std::string& eventLogPath);

// The daemon's objects as its object manager gives them, as JSON text;
// an {"error": ...} object when the daemon wasn't on the bus.
std::string readDaemonObjects(const std::string& busAddress);

// The neighbours' calls and property writes, one JSON object a line, in
// order of arrival: service, member, arguments, write.
void writeNeighbourCalls(const std::vector<BusCall>& calls,
                         const std::string& path);

// Entries of the event log (not the non-volatile copies).
int countEvents(const std::vector<RaisedEvent>& events);

// Event-log entries counted by message id.
std::map<std::string, int> countById(const std::vector<RaisedEvent>& events);

} // namespace ubbsim
