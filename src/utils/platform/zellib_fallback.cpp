#include "utils/platform/zellib_fallback.hpp"

#include "utils/platform/platform.hpp"

#include <sys/uio.h>

#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

#include <chrono>
#include <fstream>
#include <iomanip>
#include <sstream>

namespace orvane::platform
{

namespace
{

std::string joinArgs(const std::string& arg1, const std::string& arg2,
                     const std::string& arg3)
{
    std::string joined;
    for (const std::string* arg : {&arg1, &arg2, &arg3})
    {
        if (arg->empty())
        {
            continue;
        }
        joined += joined.empty() ? *arg : "," + *arg;
    }
    return joined;
}

// Journal priorities are syslog levels 0 to 7.
int priorityOf(int level)
{
    return level < 0 ? 0 : (level > 7 ? 7 : level);
}

std::string hexBytes(const uint8_t* bytes, uint32_t length)
{
    std::ostringstream out;
    for (uint32_t i = 0; bytes != nullptr && i < length; ++i)
    {
        out << (i == 0 ? "" : " ") << std::hex << std::setw(2)
            << std::setfill('0') << static_cast<unsigned>(bytes[i]);
    }
    return out.str();
}

const char* failureName(const I2CLogData& data)
{
    if (data.noAccess)
    {
        return "no-access";
    }
    if (data.readFailed)
    {
        return "read";
    }
    if (data.writeFailed)
    {
        return "write";
    }
    return data.otherFailure ? "device-step" : "none";
}

} // namespace

ZellibFallback::ZellibFallback(JournalSink sink, std::string dumpDirectory) :
    sink(std::move(sink)), dumpDirectory(std::move(dumpDirectory))
{}

int ZellibFallback::event(const std::string& message, int level,
                          const std::string& messageId, const std::string& arg1,
                          const std::string& arg2, const std::string& arg3,
                          bool nv)
{
    std::vector<std::string> fields{
        "MESSAGE=" + message, "PRIORITY=" + std::to_string(priorityOf(level)),
        "SYSLOG_IDENTIFIER=orvane"};
    if (!messageId.empty())
    {
        fields.push_back("REDFISH_MESSAGE_ID=" + messageId);
        fields.push_back("REDFISH_MESSAGE_ARGS=" + joinArgs(arg1, arg2, arg3));
    }
    if (nv)
    {
        fields.push_back("ORVANE_NON_VOLATILE=1");
    }
    sink(fields);
    remember((nv ? "NV " : "EV ") + std::to_string(level) + " " + messageId +
             " [" + joinArgs(arg1, arg2, arg3) + "] " + message);
    return 0;
}

int ZellibFallback::addLog(const std::string& message, int level,
                           const std::string& messageId,
                           const std::string& arg1, const std::string& arg2,
                           const std::string& arg3)
{
    return event(message, level, messageId, arg1, arg2, arg3, false);
}

int ZellibFallback::addNvLog(const std::string& message, int level,
                             const std::string& messageId,
                             const std::string& arg1, const std::string& arg2,
                             const std::string& arg3)
{
    return event(message, level, messageId, arg1, arg2, arg3, true);
}

int ZellibFallback::addI2cLog(int level, I2CLogData* data, bool flag)
{
    if (data == nullptr)
    {
        return -1;
    }
    std::vector<std::string> fields{
        "MESSAGE=" + data->message,
        "PRIORITY=" + std::to_string(priorityOf(level)),
        "SYSLOG_IDENTIFIER=orvane",
        "ORVANE_I2C_BUS=" + std::to_string(data->bus),
        "ORVANE_I2C_ADDRESS=" + std::to_string(data->address),
        "ORVANE_I2C_REGISTER=" + std::to_string(data->reg),
        "ORVANE_I2C_WRITE_LENGTH=" + std::to_string(data->writeLength),
        "ORVANE_I2C_WRITE_DATA=" +
            hexBytes(data->writeBuffer, data->writeLength),
        "ORVANE_I2C_READ_LENGTH=" + std::to_string(data->readLength),
        "ORVANE_I2C_FAILURE=" + std::string(failureName(*data)),
        "ORVANE_I2C_FLAG=" + std::to_string(flag ? 1 : 0)};
    sink(fields);
    remember("I2C " + std::to_string(level) + " bus " +
             std::to_string(data->bus) + " addr " +
             std::to_string(data->address) + " reg " +
             std::to_string(data->reg) + " " + failureName(*data) + " " +
             data->message);
    return 0;
}

std::pair<int, std::string> ZellibFallback::logDump(const std::string& a,
                                                    const std::string& b,
                                                    const std::string& c,
                                                    const double& value)
{
    std::lock_guard lock(mutex);
    auto seconds = std::chrono::duration_cast<std::chrono::seconds>(
                       platform::clock().wallNow().time_since_epoch())
                       .count();
    std::string name = "dump-" + a + "-" + b + "-" + std::to_string(seconds) +
                       "-" + std::to_string(++dumpCount) + ".txt";
    std::string boardPath = dumpDirectory + "/" + name;
    std::filesystem::path file = platform::path(boardPath);
    std::error_code error;
    std::filesystem::create_directories(file.parent_path(), error);
    std::ofstream out(file);
    if (!out)
    {
        return {-1, ""};
    }
    out << "type: " << a << "\nseverity: " << b << "\ndetail: " << c
        << "\nvalue: " << value << "\nrecent events (oldest first):\n";
    for (const auto& line : recent)
    {
        out << line << "\n";
    }
    out.close();
    return {out ? 0 : -1, boardPath};
}

void ZellibFallback::setBootTimeFinish(bool value)
{
    sink({"MESSAGE=Boot time finished", "PRIORITY=6",
          "SYSLOG_IDENTIFIER=orvane",
          std::string("ORVANE_BOOT_TIME_FINISH=") + (value ? "1" : "0")});
}

void ZellibFallback::remember(const std::string& line)
{
    std::lock_guard lock(mutex);
    recent.push_back(line);
    if (recent.size() > keptEvents)
    {
        recent.pop_front();
    }
}

void sendToJournal(const std::vector<std::string>& fields)
{
    std::vector<iovec> parts;
    parts.reserve(fields.size());
    for (const auto& field : fields)
    {
        parts.push_back({const_cast<char*>(field.data()), field.size()});
    }
    sd_journal_sendv(parts.data(), static_cast<int>(parts.size()));
}

} // namespace orvane::platform
