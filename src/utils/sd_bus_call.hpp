#pragma once

#include <systemd/sd-bus.h>

namespace orvane
{

// Everything one blocking method call on a private connection holds, given
// back in every path.
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

    sd_bus* bus = nullptr;
    sd_bus_message* message = nullptr;
    sd_bus_message* reply = nullptr;
    sd_bus_error error = SD_BUS_ERROR_NULL;
};

} // namespace orvane
