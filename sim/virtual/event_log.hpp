#pragma once

#include "common/sim_clock.hpp"
#include "utils/platform/zellib.hpp"
#include "utils/platform/journal.hpp"

#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

namespace ubbsim
{

// Appends JSON lines to a file that outlives the daemon process, so that a
// run that restarts the daemon keeps one log.
class JsonLines
{
  public:
    JsonLines(std::string path, const TimeBase& base) :
        path(std::move(path)), clock(base)
    {}

    void append(nlohmann::json entry);

  private:
    std::string path;
    SimClock clock;
    std::mutex mutex;
};

// The logging library of the virtual board: keeps every call it receives.
class EventLogZellib : public orvane::platform::Zellib
{
  public:
    EventLogZellib(JsonLines& out, std::string dumpDirectory) :
        out(out), dumpDirectory(std::move(dumpDirectory))
    {}

    int addLog(const std::string& message, int level,
               const std::string& messageId, const std::string& arg1,
               const std::string& arg2, const std::string& arg3) override;
    int addNvLog(const std::string& message, int level,
                 const std::string& messageId, const std::string& arg1,
                 const std::string& arg2, const std::string& arg3) override;
    int addI2cLog(int level, I2CLogData* data, bool flag) override;
    std::pair<int, std::string> logDump(const std::string& a,
                                        const std::string& b,
                                        const std::string& c,
                                        const double& value) override;
    void setBootTimeFinish(bool value) override;

  private:
    JsonLines& out;
    std::string dumpDirectory; // a board path
    std::mutex mutex;
    unsigned dumps = 0;
};

class JsonJournal : public orvane::platform::Journal
{
  public:
    explicit JsonJournal(JsonLines& out) : out(out)
    {}

    void print(int priority, const std::string& file, int line,
               const std::string& function,
               const std::string& message) override;

  private:
    JsonLines& out;
};

} // namespace ubbsim
