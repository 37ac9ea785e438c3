#include "utils/platform/real_zellib.hpp"

#include "utils/platform/zellib_fallback.hpp"

#include <dlfcn.h>

namespace orvane::platform
{

namespace
{

// The library's symbols are C++ names taking std::string references.
constexpr const char* addLogSymbol =
    "_Z22ZELLIB_AddLogByLoggingRKNSt7__cxx1112basic_stringIcSt11char_"
    "traitsIcESaIcEEEiS6_S6_S6_S6_";
constexpr const char* addNvLogSymbol =
    "_Z24ZELLIB_AddNVLogByLoggingRKNSt7__cxx1112basic_stringIcSt11char_"
    "traitsIcESaIcEEEiS6_S6_S6_S6_";
constexpr const char* addI2cLogSymbol = "_Z16ZELLIB_AddI2CLogiP10I2CLogDatab";
constexpr const char* logDumpSymbol =
    "_Z14ZELLIB_LogDumpRKNSt7__cxx1112basic_stringIcSt11char_"
    "traitsIcESaIcEEES6_S6_RKd";
constexpr const char* bootTimeSymbol = "_Z17SetBootTimeFinishb";

using AddLogFn = int (*)(const std::string&, int, const std::string&,
                         const std::string&, const std::string&,
                         const std::string&);
using AddI2cLogFn = int (*)(int, I2CLogData*, bool);
using LogDumpFn = std::pair<int, std::string> (*)(const std::string&,
                                                  const std::string&,
                                                  const std::string&,
                                                  const double&);
using BootTimeFn = void (*)(bool);

struct Symbols
{
    AddLogFn addLog = nullptr;
    AddLogFn addNvLog = nullptr;
    AddI2cLogFn addI2cLog = nullptr;
    LogDumpFn logDump = nullptr;
    BootTimeFn bootTimeFinish = nullptr;

    bool complete() const
    {
        return addLog && addNvLog && addI2cLog && logDump && bootTimeFinish;
    }
};

template <typename Fn>
Fn lookup(void* handle, const char* symbol)
{
    return reinterpret_cast<Fn>(::dlsym(handle, symbol));
}

class LoadedZellib : public Zellib
{
  public:
    explicit LoadedZellib(const Symbols& symbols) : fn(symbols)
    {}

    int addLog(const std::string& message, int level,
               const std::string& messageId, const std::string& arg1,
               const std::string& arg2, const std::string& arg3) override
    {
        return fn.addLog(message, level, messageId, arg1, arg2, arg3);
    }

    int addNvLog(const std::string& message, int level,
                 const std::string& messageId, const std::string& arg1,
                 const std::string& arg2, const std::string& arg3) override
    {
        return fn.addNvLog(message, level, messageId, arg1, arg2, arg3);
    }

    int addI2cLog(int level, I2CLogData* data, bool flag) override
    {
        return fn.addI2cLog(level, data, flag);
    }

    std::pair<int, std::string> logDump(const std::string& a,
                                        const std::string& b,
                                        const std::string& c,
                                        const double& value) override
    {
        return fn.logDump(a, b, c, value);
    }

    void setBootTimeFinish(bool value) override
    {
        fn.bootTimeFinish(value);
    }

  private:
    Symbols fn;
};

} // namespace

std::unique_ptr<Zellib> loadZellib()
{
    // Kept open for the life of the process: the daemon logs to the end.
    void* handle = ::dlopen("libzellib.so.0", RTLD_NOW | RTLD_LOCAL);
    if (handle != nullptr)
    {
        Symbols symbols;
        symbols.addLog = lookup<AddLogFn>(handle, addLogSymbol);
        symbols.addNvLog = lookup<AddLogFn>(handle, addNvLogSymbol);
        symbols.addI2cLog = lookup<AddI2cLogFn>(handle, addI2cLogSymbol);
        symbols.logDump = lookup<LogDumpFn>(handle, logDumpSymbol);
        symbols.bootTimeFinish = lookup<BootTimeFn>(handle, bootTimeSymbol);
        if (symbols.complete())
        {
            return std::make_unique<LoadedZellib>(symbols);
        }
        ::dlclose(handle);
    }
    return std::make_unique<ZellibFallback>(sendToJournal,
                                            "/var/lib/orvane/log-dumps");
}

} // namespace orvane::platform
