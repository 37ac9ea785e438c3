#include "erot/erot_endpoint.hpp"

#include "erot/opcodes.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace ubbsim::erot
{

namespace
{

// From the reply to the SMC's reset: time for the reply to arrive.
constexpr SimTime resetDelay = std::chrono::milliseconds(50);
// Larger than any response buffer of the client (its trace log page).
constexpr size_t oversizedLength = 420'100;

// Where the eRoT sits on the SMBus and in MCTP, and the time-out that
// every one of its commands is sent with.
constexpr uint8_t erotAddress = 100;
constexpr uint8_t erotEid = 0x94;
constexpr uint16_t commandTimeoutMs = 6000;
// Bytes 0-6 of every request: vendor-defined message type, the vendor's
// identifier in this byte order, two reserved zeros.
constexpr std::array<uint8_t, 7> frameStart = {0x7F, 0x00, 0x00, 0x5B,
                                               0x2C, 0x00, 0x00};

std::string hexByte(unsigned value)
{
    char text[8];
    std::snprintf(text, sizeof(text), "0x%02x", value);
    return text;
}

// Why the call can't reach the eRoT as sent; empty when it can.
std::string rejection(const MctpCall& call, std::span<const uint8_t> request)
{
    if (call.address != erotAddress)
    {
        return "address " + std::to_string(call.address);
    }
    if (call.eid != erotEid)
    {
        return "eid " + hexByte(call.eid);
    }
    if (call.timeoutMs != commandTimeoutMs)
    {
        return "timeout " + std::to_string(call.timeoutMs);
    }
    if (request.size() < headerSize)
    {
        return "frame of " + std::to_string(request.size()) + " bytes";
    }
    for (size_t i = 0; i < frameStart.size(); ++i)
    {
        if (request[i] != frameStart[i])
        {
            return "frame byte " + std::to_string(i) + " " +
                   hexByte(request[i]);
        }
    }
    return {};
}

std::string faultNames(const std::vector<const ErotFault*>& struck)
{
    std::string names;
    for (const ErotFault* fault : struck)
    {
        names += (names.empty() ? "" : ",") + fault->kind;
    }
    return names;
}

void setFormatVersion(Bytes& frame, uint8_t value)
{
    for (const auto& entry : op::versioned)
    {
        if (entry.opcode == frame[7] && frame.size() > entry.offset &&
            frame[8] == status::ok)
        {
            frame[entry.offset] = value;
        }
    }
}

} // namespace

std::string exchangeJson(const ExchangeRecord& entry)
{
    static const char* deliveries[] = {"reply", "lost", "linkDown", "rejected"};
    nlohmann::ordered_json line = {
        {"t", std::round(entry.at * 1e6) / 1e6},
        {"opcode", hexByte(entry.opcode)},
        {"request", entry.requestLength},
        {"status",
         entry.status ? nlohmann::ordered_json(*entry.status) : nullptr},
        {"response", entry.responseLength},
        {"delivery", deliveries[static_cast<int>(entry.delivery)]}};
    if (!entry.fault.empty())
    {
        line["fault"] = entry.fault;
    }
    return line.dump();
}

ErotEndpoint::ErotEndpoint(ErotState state, std::vector<ErotFault> faultList,
                           Clock clockFn) :
    device(
        std::move(state),
        [clockFn] {
            return static_cast<uint64_t>(
                std::chrono::duration_cast<std::chrono::milliseconds>(clockFn())
                    .count());
        }),
    faults(std::move(faultList)), clock(std::move(clockFn))
{}

void ErotEndpoint::recordTo(const std::string& path)
{
    std::lock_guard lock(mutex);
    out.open(path, std::ios::app);
}

Bytes ErotEndpoint::distort(Bytes frame,
                            const std::vector<const ErotFault*>& struck)
{
    if (const ErotFault* fault = findKind(struck, "formatVersion"))
    {
        setFormatVersion(frame, static_cast<uint8_t>(fault->value));
    }
    if (findKind(struck, "wrongLength"))
    {
        // A byte short where there is a payload: a longer reply would not
        // fit the client's buffer.
        frame.size() > headerSize + 1 ? frame.pop_back() : frame.push_back(0);
    }
    if (findKind(struck, "shortReply"))
    {
        frame.resize(headerSize);
    }
    if (findKind(struck, "oversizedReply"))
    {
        frame.resize(std::max(frame.size(), oversizedLength));
    }
    return frame;
}

Delivery ErotEndpoint::exchange(const MctpCall& call,
                                std::span<const uint8_t> request)
{
    std::lock_guard lock(mutex);
    SimTime now = clock();
    ExchangeRecord entry;
    entry.at = std::chrono::duration<double>(now).count();
    entry.opcode = request.size() > 7 ? request[7] : 0;
    entry.requestLength = request.size();
    Delivery delivery;
    entry.fault = rejection(call, request);
    if (!entry.fault.empty())
    {
        entry.delivery = delivery.kind = Delivery::Kind::rejected;
        record(entry);
        return delivery;
    }
    auto struck = faults.strike(now, request);
    entry.fault = faultNames(struck);
    if (findKind(struck, "deadLink"))
    {
        entry.delivery = delivery.kind = Delivery::Kind::linkDown;
        record(entry);
        return delivery;
    }
    if (const ErotFault* refused = findKind(struck, "status"))
    {
        delivery.frame =
            statusOnly(request, static_cast<uint8_t>(refused->value));
    }
    else
    {
        device.setReporting(LinkFaults::reporting(struck));
        delivery.frame = distort(device.handle(request), struck);
    }
    if (device.takeResetRequest())
    {
        resetAt = now + resetDelay;
    }
    if (delivery.frame.size() > headerSize)
    {
        entry.status = delivery.frame[headerSize];
    }
    entry.responseLength = delivery.frame.size();
    if (findKind(struck, "lostReplies"))
    {
        entry.delivery = delivery.kind = Delivery::Kind::lost;
        delivery.frame.clear();
    }
    record(entry);
    return delivery;
}

void ErotEndpoint::record(const ExchangeRecord& entry)
{
    log.push_back(entry);
    if (out.is_open())
    {
        out << exchangeJson(entry) << "\n";
        out.flush();
    }
}

void ErotEndpoint::smcReset()
{
    std::lock_guard lock(mutex);
    device.smcReset();
    resetAt.reset();
    ++resetCount;
}

bool ErotEndpoint::resetDue()
{
    std::lock_guard lock(mutex);
    if (!resetAt || clock() < *resetAt)
    {
        return false;
    }
    resetAt.reset();
    return true;
}

ErotState ErotEndpoint::state() const
{
    std::lock_guard lock(mutex);
    return device.state();
}

std::vector<ExchangeRecord> ErotEndpoint::exchanges() const
{
    std::lock_guard lock(mutex);
    return log;
}

int ErotEndpoint::resets() const
{
    std::lock_guard lock(mutex);
    return resetCount;
}

} // namespace ubbsim::erot
