#include "fakes/recording_zellib.hpp"

namespace orvane::test
{

int RecordingZellib::record(ZellibCall call)
{
    std::lock_guard lock(mutex);
    recorded.push_back(std::move(call));
    return 0;
}

int RecordingZellib::addLog(const std::string& message, int level,
                            const std::string& messageId,
                            const std::string& arg1, const std::string& arg2,
                            const std::string& arg3)
{
    return record({ZellibCall::Kind::log, message, level, messageId, arg1, arg2,
                   arg3, std::nullopt, false});
}

int RecordingZellib::addNvLog(const std::string& message, int level,
                              const std::string& messageId,
                              const std::string& arg1, const std::string& arg2,
                              const std::string& arg3)
{
    return record({ZellibCall::Kind::nvLog, message, level, messageId, arg1,
                   arg2, arg3, std::nullopt, false});
}

int RecordingZellib::addI2cLog(int level, I2CLogData* data, bool flag)
{
    return record({ZellibCall::Kind::i2cLog, data->message, level, "", "", "",
                   "", *data, flag});
}

std::pair<int, std::string> RecordingZellib::logDump(const std::string& a,
                                                     const std::string& b,
                                                     const std::string& c,
                                                     const double& value)
{
    record({ZellibCall::Kind::dump, std::to_string(value), 0, "", a, b, c,
            std::nullopt, false});
    return {dumpCode, dumpPath};
}

void RecordingZellib::setBootTimeFinish(bool value)
{
    record({ZellibCall::Kind::bootTimeFinish, "", 0, "", "", "", "",
            std::nullopt, value});
}

std::vector<ZellibCall> RecordingZellib::calls(
    std::optional<ZellibCall::Kind> kind) const
{
    std::lock_guard lock(mutex);
    std::vector<ZellibCall> some = recorded;
    std::erase_if(some, [kind](const ZellibCall& call) {
        return kind && call.kind != *kind;
    });
    return some;
}

void RecordingZellib::clear()
{
    std::lock_guard lock(mutex);
    recorded.clear();
}

} // namespace orvane::test
