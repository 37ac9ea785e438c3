#include "vr-service/vr_bus.hpp"

#include "logging/log_line.hpp"
#include "utils/sd_bus_call.hpp"

#include <cstring>

namespace orvane
{

namespace
{

// The reply's boolean, read inside a variant when `variant` is set.
BoolReply answerOf(SdBusCall& call, int r, bool variant)
{
    BoolReply reply;
    if (r < 0)
    {
        reply.errorReply = std::strcmp(call.failedStep, "sd_bus_call") == 0 &&
                           sd_bus_error_is_set(&call.error);
        reply.failure = DescribeFailure(call, r);
        return reply;
    }
    int value = 0;
    r = variant ? sd_bus_message_read(call.reply, "v", "b", &value)
                : sd_bus_message_read(call.reply, "b", &value);
    if (r < 0)
    {
        call.step("sd_bus_message_read", r);
        reply.failure = DescribeFailure(call, r);
        return reply;
    }
    reply.answer = value != 0;
    return reply;
}

} // namespace

bool VrBus::open(int attempts)
{
    int r = 0;
    for (int attempt = 0; attempt < attempts; ++attempt)
    {
        r = sd_bus_open_system(&bus);
        if (r >= 0)
        {
            return true;
        }
    }
    ConsoleLog(logging::level::ERR)
        << "sd_bus_default_system failed(err:" << r << ")";
    return false;
}

BoolReply CallBoolMethod(const char* service, const char* path,
                         const char* interface, const char* member,
                         uint32_t argument)
{
    SdBusCall call;
    int r = OpenMethodCall(call, service, path, interface, member);
    if (r >= 0)
    {
        r = AppendArguments(call, "u", argument);
    }
    if (r >= 0)
    {
        r = SendMethodCall(call);
    }
    return answerOf(call, r, false);
}

BoolReply ReadBoolProperty(const char* service, const char* path,
                           const char* interface, const char* name)
{
    SdBusCall call;
    int r = OpenMethodCall(call, service, path,
                           "org.freedesktop.DBus.Properties", "Get");
    if (r >= 0)
    {
        r = AppendArguments(call, "ss", interface, name);
    }
    if (r >= 0)
    {
        r = SendMethodCall(call);
    }
    return answerOf(call, r, true);
}

} // namespace orvane
