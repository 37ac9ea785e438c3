#include "fakes/recording_zellib.hpp"

namespace orvane::test
{

int RecordingZellib::addLog(const std::string& message, int level,
                            const std::string& messageId,
                            const std::string& arg1, const std::string& arg2,
                            const std::string& arg3)
{
    std::lock_guard lock(mutex);
    recorded.push_back({ZellibCall::Kind::log, message, level, messageId, arg1,
                        arg2, arg3, std::nullopt, false});
    return 0;
}

int RecordingZellib::addNvLog(const std::string& message, int level,
                              const std::string& messageId,
                              const std::string& arg1, const std::string& arg2,
                              const std::string& arg3)
{
    std::lock_guard lock(mutex);
    recorded.push_back({ZellibCall::Kind::nvLog, message, level, messageId,
                        arg1, arg2, arg3, std::nullopt, false});
    return 0;
}

int RecordingZellib::addI2cLog(int level, I2CLogData* data, bool flag)
{
    std::lock_guard lock(mutex);
    recorded.push_back({ZellibCall::Kind::i2cLog, data->message, level, "", "",
                        "", "", *data, flag});
    return 0;
}

std::pair<int, std::string> RecordingZellib::logDump(const std::string& a,
                                                     const std::string& b,
                                                     const std::string& c,
                                                     const double& value)
{
    std::lock_guard lock(mutex);
    recorded.push_back({ZellibCall::Kind::dump, std::to_string(value), 0, "", a,
                        b, c, std::nullopt, false});
    return {dumpCode, dumpPath};
}

void RecordingZellib::setBootTimeFinish(bool value)
{
    std::lock_guard lock(mutex);
    recorded.push_back({ZellibCall::Kind::bootTimeFinish, "", 0, "", "", "", "",
                        std::nullopt, value});
}

std::vector<ZellibCall> RecordingZellib::calls() const
{
    std::lock_guard lock(mutex);
    return recorded;
}

std::vector<ZellibCall> RecordingZellib::calls(ZellibCall::Kind kind) const
{
    std::lock_guard lock(mutex);
    std::vector<ZellibCall> out;
    for (const auto& call : recorded)
    {
        if (call.kind == kind)
        {
            out.push_back(call);
        }
    }
    return out;
}

void RecordingZellib::clear()
{
    std::lock_guard lock(mutex);
    recorded.clear();
}

} // namespace orvane::test
