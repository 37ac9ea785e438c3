#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <string>
#include <vector>

namespace orvane
{

// Everything one blocking method call on a private connection holds, given
// back in every path, and the sd-bus step that failed.
struct SdBusCall
{
    SdBusCall() = default;
    SdBusCall(const SdBusCall&) = delete;
    SdBusCall& operator=(const SdBusCall&) = delete;

    ~SdBusCall()
    {
        sd_bus_error_free(&error);
        sd_bus_message_unref(reply);
        sd_bus_message_unref(message);
        sd_bus_flush_close_unref(bus);
    }

    // Passes `result` on, noting `name` as the failed step when negative.
    int step(const char* name, int result)
    {
        if (result < 0)
        {
            failedStep = name;
        }
        return result;
    }

    sd_bus* bus = nullptr;
    sd_bus_message* message = nullptr;
    sd_bus_message* reply = nullptr;
    sd_bus_error error = SD_BUS_ERROR_NULL;
    const char* failedStep = "";
};

// Opens a private system bus connection and builds the method call.
int OpenMethodCall(SdBusCall& call, const char* service, const char* path,
                   const char* interface, const char* member);

// Appends arguments as sd_bus_message_append does.
template <typename... Args>
int AppendArguments(SdBusCall& call, const char* signature, Args... args)
{
    return call.step("sd_bus_message_append",
                     sd_bus_message_append(call.message, signature, args...));
}

// Sends the call and keeps the reply; a time-out of 0 is the bus default.
int SendMethodCall(SdBusCall& call, uint64_t timeoutUs = 0);

// "<error name>: <error message>", from the bus error when the peer sent
// one and from the errno otherwise.
std::string ErrorText(SdBusCall& call, int result);

// "<failed step>: " and the error text.
std::string DescribeFailure(SdBusCall& call, int result);

// The object paths of a GetSubTree reply, a{sa{sas}}.
int ReadSubTreePaths(sd_bus_message* reply, std::vector<std::string>& paths);

// The string property `key` of a GetAll reply, a{sv}; empty when missing.
int ReadStringProperty(sd_bus_message* reply, const char* key,
                       std::string& value);

} // namespace orvane
