#pragma once

#include "erotlib/erot.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace erot::test
{

using Bytes = std::vector<uint8_t>;

// Stands in for the transport while it lives: answers each exchange with
// the next scripted reply (or error) and records what was sent. Once the
// script is used up every exchange fails with -EIO, so a command that asks
// more often than expected shows it.
class ScriptedDevice
{
  public:
    ScriptedDevice() : previous(ErotSetTransport(&exchange))
    {
        current = this;
    }
    ~ScriptedDevice()
    {
        ErotSetTransport(previous);
        current = nullptr;
    }
    ScriptedDevice(const ScriptedDevice&) = delete;
    ScriptedDevice& operator=(const ScriptedDevice&) = delete;

    void reply(Bytes frame)
    {
        script.push_back({0, std::move(frame)});
    }
    void fail(int result)
    {
        script.push_back({result, {}});
    }

    struct Sent
    {
        Bytes request;
        size_t capacity;
        uint32_t timeoutMs;
    };
    std::vector<Sent> sent;

  private:
    static int exchange(const uint8_t* request, size_t requestLength,
                        uint8_t* response, size_t capacity, uint32_t timeoutMs,
                        size_t* pReceivedLength)
    {
        current->sent.push_back(
            {Bytes(request, request + requestLength), capacity, timeoutMs});
        auto& script = current->script;
        if (script.empty())
        {
            return -EIO;
        }
        auto [result, frame] = std::move(script.front());
        script.pop_front();
        // Oversized replies are the bus transport's case; here a bad test.
        EXPECT_LE(frame.size(), capacity);
        *pReceivedLength = std::min(frame.size(), capacity);
        std::copy_n(frame.begin(), *pReceivedLength, response);
        return result;
    }

    struct Answer
    {
        int result;
        Bytes frame;
    };
    std::deque<Answer> script;
    TransportFn previous;
    static inline ScriptedDevice* current = nullptr;
};

// A request frame: header ending in `opcode`, then the payload.
inline Bytes request(uint8_t opcode, const Bytes& payload = {})
{
    Bytes frame = {0x7F, 0x00, 0x00, 0x5B, 0x2C, 0x00, 0x00, opcode};
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

// A response frame: echoed header, status, payload.
inline Bytes response(uint8_t opcode, uint8_t status, const Bytes& payload = {})
{
    Bytes frame = request(opcode, {status});
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

// A success response of exactly `length` bytes, payload `head` then zeros.
inline Bytes sized(uint8_t opcode, size_t length, const Bytes& head = {})
{
    Bytes frame = response(opcode, 0, head);
    frame.resize(length, 0);
    return frame;
}

// One page of a paged read with status 0.
inline Bytes page(uint8_t opcode, uint8_t flags, uint16_t token,
                  uint8_t version, const Bytes& entries = {})
{
    Bytes head = {flags, static_cast<uint8_t>(token),
                  static_cast<uint8_t>(token >> 8), version};
    head.insert(head.end(), entries.begin(), entries.end());
    return response(opcode, 0, head);
}

// `count` entries of `size` bytes, entry i filled with i + 1 so that a
// misplaced copy shows.
inline Bytes entries(size_t count, size_t size)
{
    Bytes all;
    for (size_t i = 0; i < count; ++i)
    {
        all.insert(all.end(), size, static_cast<uint8_t>(i + 1));
    }
    return all;
}

struct Printed
{
    std::string out;
    std::string err;
};

// Runs `call` and returns what it printed.
template <typename Call>
Printed printed(Call call)
{
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    call();
    Printed result;
    result.err = ::testing::internal::GetCapturedStderr();
    result.out = ::testing::internal::GetCapturedStdout();
    return result;
}

} // namespace erot::test
