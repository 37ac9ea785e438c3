#include "logging/log_line.hpp"

#include "utils/platform/platform.hpp"

#include <array>
#include <chrono>
#include <ctime>
#include <iomanip>
#include <iostream>

namespace orvane::logging
{

// A 32-bit time_t prints 2038-01-19 03:14:08 as 1901-12-13 20:45:52: 32-bit
// builds need -D_TIME_BITS=64.
static_assert(sizeof(std::time_t) == 8, "time_t must hold dates past 2038");

namespace
{

constexpr std::array<std::string_view, 8> levelNames = {
    "EMERGENCY", "ALERT",  "CRITICAL", "ERROR",
    "WARNING",   "NOTICE", "INFO",     "DEBUG"};

std::string_view lastComponent(std::string_view path)
{
    auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

long long wallSeconds()
{
    auto now = platform::clock().wallNow();
    return std::chrono::duration_cast<std::chrono::seconds>(
               now.time_since_epoch())
        .count();
}

} // namespace

std::string_view levelName(int level)
{
    if (level < 0 || static_cast<size_t>(level) >= levelNames.size())
    {
        return {};
    }
    return levelNames[static_cast<size_t>(level)];
}

std::string linePrefix(long long utcSeconds, int level, std::string_view file,
                       int line)
{
    std::time_t seconds = static_cast<std::time_t>(utcSeconds);
    std::tm broken{};
    gmtime_r(&seconds, &broken);
    std::array<char, 32> work{};
    size_t length =
        std::strftime(work.data(), work.size(), "%Y-%m-%d %H:%M:%S", &broken);

    std::ostringstream out;
    out << "(" << std::string_view(work.data(), length) << ") ["
        << levelName(level) << " "
        << std::quoted(std::string(lastComponent(file))) << ":" << line << "] ";
    return out.str();
}

LogLine::LogLine(int level, std::string_view file, int line, bool toConsole,
                 bool toNv, bool withPrefix, std::string messageId,
                 std::string arg1, std::string arg2, std::string arg3) :
    lineLevel(level),
    name(levelName(level)), messageId(std::move(messageId)),
    arg1(std::move(arg1)), arg2(std::move(arg2)), arg3(std::move(arg3)),
    toConsole(toConsole), toNv(toConsole ? false : toNv)
{
    if (withPrefix)
    {
        buffer << linePrefix(wallSeconds(), level, file, line);
    }
}

LogLine::~LogLine()
{
    std::string text = buffer.str();
    if (toConsole)
    {
        std::cout << text << std::endl;
        return;
    }
    auto& library = platform::zellib();
    if (toNv)
    {
        library.addNvLog(text, lineLevel, messageId, arg1, arg2, arg3);
    }
    library.addLog(text, lineLevel, messageId, arg1, arg2, arg3);
}

} // namespace orvane::logging
