#include "secure-boot/trace_log.hpp"

#include "erotlib/erot.hpp"
#include "logging/log_line.hpp"
#include "secure-boot/erot/erot_report.hpp"

#include <cstring>
#include <iomanip>
#include <sstream>
#include <string>

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::ERR;
using logging::level::INFO;
using logging::level::WARNING;

constexpr uint8_t severityFatal = 3;
constexpr uint8_t severityNonFatal = 4;
// Non-fatal entries are only worth an event when the device says so.
constexpr uint8_t healthReportNonFatal = 0x02;

// An entry read out of its packed record, so that its fields can be bound
// to references.
struct Entry
{
    uint64_t timestamp;
    std::string tag;
    uint32_t data1;
    uint32_t data2;
    unsigned severity;
};

// The last entry reported; the boot thread alone calls this code.
erot::TraceLogEntry lastSeen{};

Entry unpack(const erot::TraceLogEntry& record)
{
    return {record.timestamp, std::string(record.tag, sizeof(record.tag)),
            record.data1, record.data2, record.severity};
}

// Older than the last entry seen, or that entry again.
bool alreadySeen(const erot::TraceLogEntry& record)
{
    if (record.timestamp < lastSeen.timestamp)
    {
        return true;
    }
    return record.timestamp == lastSeen.timestamp &&
           std::memcmp(record.tag, lastSeen.tag, sizeof(record.tag)) == 0 &&
           record.data1 == lastSeen.data1 && record.data2 == lastSeen.data2;
}

std::string hexWord(uint32_t value)
{
    std::ostringstream text;
    text << "0x" << std::hex << value;
    return text.str();
}

void logStatusError(uint8_t status)
{
    ConsoleLog(ERR) << "Status Error 0x" << std::hex << std::setw(2)
                    << std::setfill('0') << unsigned{status};
}

void reportEntry(const Entry& entry, uint8_t health)
{
    ConsoleLog(INFO) << std::setw(12) << entry.timestamp << ' ' << entry.tag
                     << " 0x" << std::hex << std::setw(8) << std::setfill('0')
                     << entry.data1 << " 0x" << std::setw(8) << entry.data2
                     << ' ' << std::dec << entry.severity;
    if (entry.tag == "BPup")
    {
        NvEvent(WARNING, "AutomaticRecoveryTriggered", "ERoT", "", "")
            << "Auto self-recovery was performed.";
    }
    const std::string args =
        entry.tag + "," + hexWord(entry.data1) + "," + hexWord(entry.data2);
    if (entry.severity == severityFatal)
    {
        NvEvent(CRITICAL, "ResourceEvent.1.2.1.ResourceEROTFatalErrorsOEM",
                args, "", "")
            << "EROT fatal error occured";
    }
    else if (entry.severity == severityNonFatal &&
             (health & healthReportNonFatal) != 0)
    {
        NvEvent(WARNING, "ResourceEvent.1.2.1.ResourceEROTNonFatalErrorsOEM",
                args, "", "")
            << "EROT Non fatal error occured";
    }
}

// The health byte, or false when the poll failed (reported here).
bool pollHealth(uint8_t& health)
{
    uint8_t words[2] = {};
    uint8_t status = 0;
    int result = erot::ErotHealthStatusPoll(words, &status);
    if (result != 0)
    {
        ReportErotFailure(
            "ErotGetTraceLog",
            "Fail to run ErotHealthStatusPoll. Error Code: ", result);
        return false;
    }
    if (status != 0)
    {
        logStatusError(status);
        return false;
    }
    health = words[0];
    return true;
}

} // namespace

void PrintDebugTraceLog(BootContext&)
{
    uint32_t count = 0;
    erot::TraceLogEntry* raw = nullptr;
    bool overflowed = false;
    uint8_t status = 0;
    int result = erot::ErotGetTraceLog(&count, &raw, &overflowed, &status);
    erot::Owned<erot::TraceLogEntry> entries(raw);
    if (result != 0)
    {
        ReportErotFailure("ErotGetTraceLog",
                          "Fail to run ErotGetTraceLog. Error Code: ", result);
        return;
    }
    if (status != 0)
    {
        logStatusError(status);
        return;
    }
    if (overflowed)
    {
        ConsoleLog(ERR) << "Trace log overflowed!";
    }
    ConsoleLog(INFO) << "Got " << count << " logs:";
    uint8_t health = 0;
    if (!pollHealth(health))
    {
        return;
    }
    for (uint32_t index = 0; index < count; ++index)
    {
        const erot::TraceLogEntry& record = entries.get()[index];
        if (alreadySeen(record))
        {
            continue;
        }
        reportEntry(unpack(record), health);
        lastSeen = record;
    }
}

void ResetTraceLogCursor()
{
    lastSeen = erot::TraceLogEntry{};
}

} // namespace orvane
