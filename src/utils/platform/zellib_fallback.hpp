#pragma once

#include "utils/platform/zellib.hpp"

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace orvane::platform
{

// Takes one structured journal entry as "FIELD=value" texts.
using JournalSink = std::function<void(const std::vector<std::string>&)>;

// Stands in for the closed logging library when it is not installed: events
// become journal entries with the fields that the Redfish event log reads,
// and a dump is a file with the most recent events.
class ZellibFallback : public Zellib
{
  public:
    explicit ZellibFallback(JournalSink sink, std::string dumpDirectory);

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

    static constexpr size_t keptEvents = 256;

  private:
    int event(const std::string& message, int level,
              const std::string& messageId, const std::string& arg1,
              const std::string& arg2, const std::string& arg3, bool nv);
    void remember(const std::string& line);

    JournalSink sink;
    std::string dumpDirectory;
    std::mutex mutex;
    std::deque<std::string> recent;
    unsigned dumpCount = 0;
};

// Sends an entry to the systemd journal.
void sendToJournal(const std::vector<std::string>& fields);

} // namespace orvane::platform
