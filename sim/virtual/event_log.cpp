#include "virtual/event_log.hpp"

#include "utils/platform/platform.hpp"

#include <fstream>

namespace ubbsim
{

namespace
{

nlohmann::json eventEntry(const char* call, const std::string& message,
                          int level, const std::string& messageId,
                          const std::string& arg1, const std::string& arg2,
                          const std::string& arg3)
{
    return {{"call", call},
            {"level", level},
            {"id", messageId},
            {"args", {arg1, arg2, arg3}},
            {"message", message}};
}

const char* failureOf(const I2CLogData& data)
{
    if (data.noAccess)
    {
        return "noAccess";
    }
    if (data.readFailed)
    {
        return "read";
    }
    if (data.writeFailed)
    {
        return "write";
    }
    return data.otherFailure ? "other" : "none";
}

} // namespace

void JsonLines::append(nlohmann::json entry)
{
    entry["t"] = static_cast<double>(clock.now().count()) / 1e9;
    std::string line =
        entry.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    std::lock_guard lock(mutex);
    std::ofstream file(path, std::ios::app);
    file << line << '\n';
}

int EventLogZellib::addLog(const std::string& message, int level,
                           const std::string& messageId,
                           const std::string& arg1, const std::string& arg2,
                           const std::string& arg3)
{
    out.append(eventEntry("log", message, level, messageId, arg1, arg2, arg3));
    return 0;
}

int EventLogZellib::addNvLog(const std::string& message, int level,
                             const std::string& messageId,
                             const std::string& arg1, const std::string& arg2,
                             const std::string& arg3)
{
    out.append(
        eventEntry("nvLog", message, level, messageId, arg1, arg2, arg3));
    return 0;
}

int EventLogZellib::addI2cLog(int level, I2CLogData* data, bool flag)
{
    if (data == nullptr)
    {
        return -1;
    }
    out.append({{"call", "i2cLog"},
                {"level", level},
                {"message", data->message},
                {"bus", data->bus},
                {"address", data->address},
                {"register", data->reg},
                {"readLength", data->readLength},
                {"writeLength", data->writeLength},
                {"failure", failureOf(*data)},
                {"flag", flag}});
    return 0;
}

std::pair<int, std::string> EventLogZellib::logDump(const std::string& a,
                                                    const std::string& b,
                                                    const std::string& c,
                                                    const double& value)
{
    unsigned number = 0;
    {
        std::lock_guard lock(mutex);
        number = ++dumps;
    }
    std::string path =
        dumpDirectory + "/dump-" + a + "-" + std::to_string(number) + ".txt";
    auto file = orvane::platform::path(path);
    std::error_code ignored;
    std::filesystem::create_directories(file.parent_path(), ignored);
    std::ofstream(file) << a << " " << b << " " << c << " " << value << "\n";
    out.append({{"call", "dump"},
                {"args", {a, b, c}},
                {"value", value},
                {"path", path}});
    return {0, path};
}

void EventLogZellib::setBootTimeFinish(bool value)
{
    out.append({{"call", "bootTimeFinish"}, {"value", value}});
}

void JsonJournal::print(int priority, const std::string& file, int line,
                        const std::string& function, const std::string& message)
{
    out.append({{"priority", priority},
                {"file", file},
                {"line", line},
                {"function", function},
                {"message", message}});
}

} // namespace ubbsim
