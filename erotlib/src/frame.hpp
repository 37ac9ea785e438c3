#pragma once

#include "erotlib/erot.hpp"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace erot::detail
{

namespace opcode
{
inline constexpr uint8_t activeFlashConfigRead = 0x01;
inline constexpr uint8_t imageVerify = 0x02;
inline constexpr uint8_t signalBootSuccess = 0x04;
inline constexpr uint8_t bprRead = 0x05;
inline constexpr uint8_t componentInfoV2 = 0x06;
inline constexpr uint8_t bkcManifest = 0x07;
inline constexpr uint8_t securitySettings = 0x08;
inline constexpr uint8_t setManageabilityFeature = 0x09;
inline constexpr uint8_t tokenInstall = 0x0A;
inline constexpr uint8_t tokenErase = 0x0B;
inline constexpr uint8_t deviceId = 0x0C;
inline constexpr uint8_t arbCommit = 0x0D;
inline constexpr uint8_t componentInfoV3 = 0x0E;
inline constexpr uint8_t componentInfoV4 = 0x0F;
inline constexpr uint8_t selectActiveFlash = 0x10;
inline constexpr uint8_t systemReset = 0x11;
inline constexpr uint8_t smcPersistGet = 0x12;
inline constexpr uint8_t smcPersistSet = 0x13;
inline constexpr uint8_t tokenRead = 0x14;
inline constexpr uint8_t getAutoArbCommit = 0x15;
inline constexpr uint8_t setAutoArbCommit = 0x16;
inline constexpr uint8_t identityHex = 0x17;
inline constexpr uint8_t oneByte = 0x18;
inline constexpr uint8_t command19 = 0x19;
inline constexpr uint8_t command1A = 0x1A;
inline constexpr uint8_t recordSet = 0x1B;
inline constexpr uint8_t recordGet = 0x1C;
inline constexpr uint8_t certificationChain = 0x20;
inline constexpr uint8_t keyRevokeBits = 0x21;
inline constexpr uint8_t svnRevokeBits = 0x22;
inline constexpr uint8_t getResetReason = 0x23;
inline constexpr uint8_t setResetReason = 0x24;
inline constexpr uint8_t traceLogBasic = 0x30;
inline constexpr uint8_t traceLog = 0x31;
inline constexpr uint8_t healthStatusPoll = 0x32;
inline constexpr uint8_t commandF0 = 0xF0;
inline constexpr uint8_t commandF1 = 0xF1;
} // namespace opcode

// The transport that commands use now; see ErotSetTransport.
TransportFn currentTransport();

inline constexpr size_t statusOffset = 8;
inline constexpr size_t payloadOffset = 9;

inline void putLe16(uint8_t* at, uint16_t value)
{
    at[0] = static_cast<uint8_t>(value);
    at[1] = static_cast<uint8_t>(value >> 8);
}

inline void putLe32(uint8_t* at, uint32_t value)
{
    for (size_t i = 0; i < 4; ++i)
    {
        at[i] = static_cast<uint8_t>(value >> (8 * i));
    }
}

inline uint16_t getLe16(const uint8_t* at)
{
    return static_cast<uint16_t>(at[0] | (at[1] << 8));
}

inline uint32_t getLe32(const uint8_t* at)
{
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i)
    {
        value |= static_cast<uint32_t>(at[i]) << (8 * i);
    }
    return value;
}

// Zeroed heap memory that is freed unless released to a caller. calloc is
// used rather than new so that a failed allocation is a null pointer the
// caller turns into -ENOMEM, and never an exception.
template <typename T>
Owned<T[]> allocate(size_t count)
{
    return Owned<T[]>(static_cast<T*>(std::calloc(count, sizeof(T))));
}

// A request of RequestSize bytes and a response of exactly ResponseSize
// bytes, both zeroed, on the stack.
template <size_t RequestSize, size_t ResponseSize>
struct Exchange
{
    static_assert(RequestSize >= frameHeaderSize);
    static_assert(ResponseSize >= minResponseSize);

    std::array<uint8_t, RequestSize> request{};
    std::array<uint8_t, ResponseSize> response{};

    uint8_t* payload()
    {
        return request.data() + frameHeaderSize;
    }

    const uint8_t* reply() const
    {
        return response.data() + payloadOffset;
    }

    int run(uint8_t op, uint8_t* pErrorCode)
    {
        return ErotTransact(op, request.data(), RequestSize, response.data(),
                            ResponseSize, nullptr, pErrorCode);
    }
};

// A command whose response is the status byte alone.
template <size_t RequestSize>
int statusOnly(uint8_t op, Exchange<RequestSize, minResponseSize>& exchange,
               uint8_t* pErrorCode)
{
    return exchange.run(op, pErrorCode);
}

inline int statusOnly(uint8_t op, uint8_t* pErrorCode)
{
    Exchange<frameHeaderSize, minResponseSize> exchange;
    return exchange.run(op, pErrorCode);
}

// True when the exchange reached the device and it accepted the command.
inline bool accepted(int result, const uint8_t* pErrorCode)
{
    return result == 0 && *pErrorCode == 0;
}

} // namespace erot::detail
