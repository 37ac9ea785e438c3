#include "erotlib/erot.hpp"

#include <systemd/sd-bus.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace erot
{

namespace
{

constexpr const char* mctpService = "xyz.openbmc_project.MCTP.SMBus15";
constexpr const char* mctpPath = "/xyz/openbmc_project/mctp";
constexpr const char* mctpInterface = "xyz.openbmc_project.MCTP.Endpoint";
constexpr const char* mctpMethod = "MctpSendRecv";

constexpr uint8_t erotSmbusAddress = 100;
constexpr uint8_t erotEid = 0x94;
// The bus call waits this long whatever the time-out in the message says.
constexpr uint64_t busCallTimeoutUs = 25'000'000;

std::atomic<TransportFn> activeTransport{&ErotTransportSendRecv};

struct BusUnref
{
    void operator()(sd_bus* bus) const noexcept
    {
        sd_bus_unref(bus);
    }
};

// What one attempt holds; released before the next attempt starts.
struct Attempt
{
    sd_bus_message* call = nullptr;
    sd_bus_message* reply = nullptr;
    sd_bus_error error = SD_BUS_ERROR_NULL;

    Attempt() = default;
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;
    ~Attempt()
    {
        sd_bus_error_free(&error);
        sd_bus_message_unref(call);
        sd_bus_message_unref(reply);
    }
};

struct Outcome
{
    int result;
    // A reply too large for the caller is not a lost reply: no retry.
    bool final;
};

int failed(const char* what, int result)
{
    std::printf("%s error: %d (%s)\n", what, result, std::strerror(-result));
    return result;
}

int buildCall(sd_bus* bus, Attempt& attempt, const uint8_t* request,
              size_t requestLength, uint16_t timeoutMs)
{
    int r = sd_bus_message_new_method_call(bus, &attempt.call, mctpService,
                                           mctpPath, mctpInterface, mctpMethod);
    if (r < 0)
    {
        return failed("sd_bus_message_new_method_call", r);
    }
    r = sd_bus_message_append(attempt.call, "y", erotSmbusAddress);
    if (r < 0)
    {
        return failed("sd_bus_message_append I2C address", r);
    }
    r = sd_bus_message_append(attempt.call, "y", erotEid);
    if (r < 0)
    {
        return failed("sd_bus_message_append destination EID", r);
    }
    r = sd_bus_message_append(attempt.call, "q", timeoutMs);
    if (r < 0)
    {
        return failed("sd_bus_message_append timeout", r);
    }
    r = sd_bus_message_append_array(attempt.call, 'y', request, requestLength);
    if (r < 0)
    {
        return failed("sd_bus_message_append_array pReqBuffer", r);
    }
    return 0;
}

Outcome attemptOnce(sd_bus* bus, const uint8_t* request, size_t requestLength,
                    uint8_t* response, size_t responseCapacity,
                    uint16_t timeoutMs, size_t* pReceivedLength)
{
    Attempt attempt;
    int r = buildCall(bus, attempt, request, requestLength, timeoutMs);
    if (r < 0)
    {
        return {r, false};
    }
    r = sd_bus_call(bus, attempt.call, busCallTimeoutUs, &attempt.error,
                    &attempt.reply);
    if (r < 0)
    {
        return {failed("sd_bus_call", r), false};
    }
    const void* data = nullptr;
    size_t size = 0;
    r = sd_bus_message_read_array(attempt.reply, 'y', &data, &size);
    if (r < 0)
    {
        return {failed("sd_bus_message_read_array", r), false};
    }
    if (size == 0)
    {
        std::printf("Response length is 0");
        return {-EIO, false};
    }
    if (data == nullptr)
    {
        std::printf("Response data is NULL");
        return {-EIO, false};
    }
    if (size > responseCapacity)
    {
        std::printf("RX buffer is not enough (%u < %u)\n",
                    static_cast<unsigned>(responseCapacity),
                    static_cast<unsigned>(size));
        return {-EIO, true};
    }
    std::memcpy(response, data, size);
    *pReceivedLength = size;
    return {0, true};
}

} // namespace

int ErotTransportSendRecv(const uint8_t* request, size_t requestLength,
                          uint8_t* response, size_t responseCapacity,
                          uint32_t timeoutMs, size_t* pReceivedLength)
{
    if (timeoutMs > transportTimeoutCapMs)
    {
        timeoutMs = transportTimeoutCapMs;
    }
    if ((request == nullptr && requestLength != 0) ||
        (response == nullptr && responseCapacity != 0) ||
        pReceivedLength == nullptr)
    {
        return -EINVAL;
    }

    sd_bus* rawBus = nullptr;
    int r = sd_bus_default_system(&rawBus);
    if (r < 0)
    {
        return failed("sd_bus_default_system", r);
    }
    std::unique_ptr<sd_bus, BusUnref> bus(rawBus);

    for (int attempt = 1;; ++attempt)
    {
        Outcome outcome = attemptOnce(
            bus.get(), request, requestLength, response, responseCapacity,
            static_cast<uint16_t>(timeoutMs), pReceivedLength);
        if (outcome.final || attempt == transportAttempts)
        {
            return outcome.result;
        }
        std::printf("Retry eRot API (%d/%d)\n", attempt, transportAttempts - 1);
    }
}

TransportFn ErotSetTransport(TransportFn transport)
{
    if (transport == nullptr)
    {
        transport = &ErotTransportSendRecv;
    }
    return activeTransport.exchange(transport);
}

namespace detail
{

TransportFn currentTransport()
{
    return activeTransport.load();
}

} // namespace detail

} // namespace erot
