#include "utils/sd_bus_call.hpp"

#include <cstring>

namespace orvane
{

int OpenMethodCall(SdBusCall& call, const char* service, const char* path,
                   const char* interface, const char* member)
{
    int r = call.step("sd_bus_open_system", sd_bus_open_system(&call.bus));
    if (r < 0)
    {
        return r;
    }
    return call.step("sd_bus_message_new_method_call",
                     sd_bus_message_new_method_call(call.bus, &call.message,
                                                    service, path, interface,
                                                    member));
}

int SendMethodCall(SdBusCall& call, uint64_t timeoutUs)
{
    return call.step("sd_bus_call",
                     sd_bus_call(call.bus, call.message, timeoutUs, &call.error,
                                 &call.reply));
}

std::string ErrorText(SdBusCall& call, int result)
{
    if (!sd_bus_error_is_set(&call.error))
    {
        sd_bus_error_set_errno(&call.error, -result);
    }
    std::string text = call.error.name != nullptr ? call.error.name : "";
    text += ": ";
    text += call.error.message != nullptr ? call.error.message : "";
    return text;
}

std::string DescribeFailure(SdBusCall& call, int result)
{
    return std::string(call.failedStep) + ": " + ErrorText(call, result);
}

int ReadSubTreePaths(sd_bus_message* reply, std::vector<std::string>& paths)
{
    int r =
        sd_bus_message_enter_container(reply, SD_BUS_TYPE_ARRAY, "{sa{sas}}");
    while (r > 0)
    {
        r = sd_bus_message_enter_container(reply, SD_BUS_TYPE_DICT_ENTRY,
                                           "sa{sas}");
        if (r <= 0)
        {
            break;
        }
        const char* path = nullptr;
        r = sd_bus_message_read(reply, "s", &path);
        if (r >= 0)
        {
            paths.emplace_back(path);
            r = sd_bus_message_skip(reply, "a{sas}");
        }
        if (r >= 0)
        {
            r = sd_bus_message_exit_container(reply);
        }
    }
    return r;
}

int ReadStringProperty(sd_bus_message* reply, const char* key,
                       std::string& value)
{
    int r = sd_bus_message_enter_container(reply, SD_BUS_TYPE_ARRAY, "{sv}");
    while (r > 0)
    {
        r = sd_bus_message_enter_container(reply, SD_BUS_TYPE_DICT_ENTRY, "sv");
        if (r <= 0)
        {
            break;
        }
        const char* name = nullptr;
        r = sd_bus_message_read(reply, "s", &name);
        if (r >= 0 && std::strcmp(name, key) == 0 &&
            sd_bus_message_verify_type(reply, SD_BUS_TYPE_VARIANT, "s") > 0)
        {
            const char* text = nullptr;
            r = sd_bus_message_read(reply, "v", "s", &text);
            value = r >= 0 ? text : "";
        }
        else if (r >= 0)
        {
            r = sd_bus_message_skip(reply, "v");
        }
        if (r >= 0)
        {
            r = sd_bus_message_exit_container(reply);
        }
    }
    return r;
}

} // namespace orvane
