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

// The transport while it lives: each exchange takes the next scripted reply
// (or error) and is recorded. An exhausted script fails with -EIO, so an
// extra exchange shows.
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
        EXPECT_LE(frame.size(), capacity); // oversize is the bus's case
        *pReceivedLength = std::min(frame.size(), capacity);
        std::copy_n(frame.begin(), *pReceivedLength, response);
        return result;
    }

    std::deque<std::pair<int, Bytes>> script;
    TransportFn previous;
    static inline ScriptedDevice* current = nullptr;
};

template <typename... More>
Bytes join(Bytes first, const More&... more)
{
    (first.insert(first.end(), more.begin(), more.end()), ...);
    return first;
}

// A request frame: header ending in `opcode`, then the payload.
inline Bytes request(uint8_t opcode, const Bytes& payload = {})
{
    return join({0x7F, 0x00, 0x00, 0x5B, 0x2C, 0x00, 0x00, opcode}, payload);
}

// A response frame: echoed header, status, payload.
inline Bytes response(uint8_t opcode, uint8_t status, const Bytes& payload = {})
{
    return join(request(opcode, {status}), payload);
}

// A success response of exactly `length` bytes: `head`, then zeros.
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
    return response(opcode, 0,
                    join({flags, static_cast<uint8_t>(token),
                          static_cast<uint8_t>(token >> 8), version},
                         entries));
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

template <typename Call>
Printed printed(Call call)
{
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    call();
    std::string err = ::testing::internal::GetCapturedStderr();
    return {::testing::internal::GetCapturedStdout(), err};
}

} // namespace erot::test
