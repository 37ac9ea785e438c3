#pragma once

#include "utils/platform/zellib.hpp"

#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace orvane::test
{

// One call that reached the logging library.
struct ZellibCall
{
    enum class Kind
    {
        log,
        nvLog,
        i2cLog,
        dump,
        bootTimeFinish,
    };
    Kind kind;
    std::string message;
    int level = 0;
    std::string messageId;
    std::string arg1;
    std::string arg2;
    std::string arg3;
    std::optional<I2CLogData> i2c; // a copy; its buffers point at the caller's
    bool flag = false;
};

class RecordingZellib : public platform::Zellib
{
  public:
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

    // Of one kind, or all.
    std::vector<ZellibCall> calls(
        std::optional<ZellibCall::Kind> kind = {}) const;
    void clear();

    int dumpCode = 0;
    std::string dumpPath = "/tmp/dump.tar";

  private:
    int record(ZellibCall call);

    mutable std::mutex mutex;
    std::vector<ZellibCall> recorded;
};

} // namespace orvane::test
