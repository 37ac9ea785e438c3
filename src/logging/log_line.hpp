#pragma once

#include <ios>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>

namespace orvane::logging
{

// Severity levels as syslog numbers.
namespace level
{
constexpr int EMERGENCY = 0;
constexpr int ALERT = 1;
constexpr int CRITICAL = 2;
constexpr int ERR = 3;
constexpr int WARNING = 4;
constexpr int NOTICE = 5;
constexpr int INFO = 6;
constexpr int DEBUG = 7;
} // namespace level

// The name a level shows in the line prefix; empty for 8 and above.
std::string_view levelName(int level);

// "(YYYY-mm-dd HH:MM:SS) [LEVEL "file":line] " for the given UTC seconds.
std::string linePrefix(long long utcSeconds, int level, std::string_view file,
                       int line);

// One line of text, streamed into like an ostringstream and delivered when
// it ends: to standard output, or to the event log (and first to the
// non-volatile log when toNv is set). A line never goes to both.
class LogLine
{
  public:
    LogLine(int level, std::string_view file, int line, bool toConsole,
            bool toNv, bool withPrefix, std::string messageId, std::string arg1,
            std::string arg2, std::string arg3);
    ~LogLine();

    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;

    template <typename T>
    LogLine& operator<<(const T& value)
    {
        buffer << value;
        return *this;
    }

    LogLine& operator<<(std::ios_base& (*manipulator)(std::ios_base&))
    {
        buffer << manipulator;
        return *this;
    }

    LogLine& operator<<(std::ostream& (*manipulator)(std::ostream&))
    {
        buffer << manipulator;
        return *this;
    }

  private:
    std::ostringstream buffer;
    int lineLevel;
    std::string name;
    std::string messageId;
    std::string arg1;
    std::string arg2;
    std::string arg3;
    bool toConsole;
    bool toNv;
};

} // namespace orvane::logging

// The three forms that call sites write. Each captures its own file and line.
#define ConsoleLog(lvl)                                                        \
    ::orvane::logging::LogLine((lvl), __FILE__, __LINE__, true, false, true,   \
                               "", "", "", "")
#define NvEvent(lvl, id, a1, a2, a3)                                           \
    ::orvane::logging::LogLine((lvl), __FILE__, __LINE__, false, true, true,   \
                               (id), (a1), (a2), (a3))
#define PlainEvent(lvl, id, a1, a2, a3)                                        \
    ::orvane::logging::LogLine((lvl), __FILE__, __LINE__, false, false, true,  \
                               (id), (a1), (a2), (a3))
