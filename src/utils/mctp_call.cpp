#include "utils/mctp_call.hpp"

#include "logging/log_line.hpp"
#include "utils/sd_bus_call.hpp"

#include <systemd/sd-bus.h>

#include <cstdint>

namespace orvane
{

namespace
{

using logging::level::ERR;

int failed(const char* function, int result)
{
    ConsoleLog(ERR) << function << " error code: " << result;
    return result;
}

// Appends one scalar; the result of the first failing append wins.
template <typename T>
int appendScalar(int previous, sd_bus_message* message, const char* type,
                 T value)
{
    return previous < 0 ? previous
                        : sd_bus_message_append(message, type, value);
}

// Steps common to the three methods: connection, message, scalars, bytes
// and the call itself, which waits as long as the endpoint takes. The
// reply is left in `call` on success.
template <typename AppendScalars>
int callEndpoint(SdBusCall& call, const MctpEndpointService& endpoint,
                 const char* method, AppendScalars appendScalars,
                 const std::vector<uint8_t>& data)
{
    int r =
        OpenMethodCall(call, endpoint.service.c_str(), endpoint.path.c_str(),
                       endpoint.interface.c_str(), method);
    if (r >= 0)
    {
        r = call.step("sd_bus_message_append", appendScalars(call.message));
    }
    if (r >= 0)
    {
        r = call.step("sd_bus_message_append_array",
                      sd_bus_message_append_array(call.message, 'y',
                                                  data.data(), data.size()));
    }
    if (r >= 0)
    {
        r = SendMethodCall(call, UINT64_MAX);
    }
    return r < 0 ? failed(call.failedStep, r) : 0;
}

int readResult(sd_bus_message* reply)
{
    int32_t result = 0;
    int r = sd_bus_message_read_basic(reply, 'i', &result);
    if (r < 0)
    {
        return failed("sd_bus_message_read_basic", r);
    }
    return result;
}

} // namespace

int MctpSendAddress(const MctpEndpointService& endpoint, uint8_t a, uint8_t b,
                    uint8_t c, bool flag, const std::vector<uint8_t>& data)
{
    SdBusCall call;
    auto scalars = [&](sd_bus_message* message) {
        int r = appendScalar(0, message, "y", a);
        r = appendScalar(r, message, "y", b);
        r = appendScalar(r, message, "y", c);
        return appendScalar(r, message, "b", static_cast<int>(flag));
    };
    int r = callEndpoint(call, endpoint, "MctpSendAddress", scalars, data);
    return r < 0 ? r : readResult(call.reply);
}

int MctpSendBusOwner(const MctpEndpointService& endpoint, uint8_t a, bool flag,
                     const std::vector<uint8_t>& data)
{
    SdBusCall call;
    auto scalars = [&](sd_bus_message* message) {
        int r = appendScalar(0, message, "y", a);
        return appendScalar(r, message, "b", static_cast<int>(flag));
    };
    int r = callEndpoint(call, endpoint, "MctpSendBusOwner", scalars, data);
    return r < 0 ? r : readResult(call.reply);
}

int MctpSendRecv(const MctpEndpointService& endpoint, uint8_t eid,
                 uint16_t timeout, const std::vector<uint8_t>& request,
                 std::vector<uint8_t>& response)
{
    SdBusCall call;
    auto scalars = [&](sd_bus_message* message) {
        int r = appendScalar(0, message, "y", eid);
        return appendScalar(r, message, "q", timeout);
    };
    int r = callEndpoint(call, endpoint, "MctpSendRecv", scalars, request);
    if (r < 0)
    {
        return r;
    }
    r = sd_bus_message_enter_container(call.reply, SD_BUS_TYPE_ARRAY, "y");
    if (r < 0)
    {
        return failed("sd_bus_message_enter_container", r);
    }
    // Appended to what the caller already holds, as the callers expect.
    for (;;)
    {
        uint8_t byte = 0;
        r = sd_bus_message_read(call.reply, "y", &byte);
        if (r < 0)
        {
            return failed("sd_bus_message_read", r);
        }
        if (r == 0)
        {
            return 0;
        }
        response.push_back(byte);
    }
}

} // namespace orvane
