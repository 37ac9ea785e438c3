#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

// Commands of the eRoT, byte 7 of every request frame. Written apart from
// the client library's table on purpose: the board checks the client
// instead of sharing its mistakes.
namespace ubbsim::erot::op
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
inline constexpr uint8_t persistGet = 0x12;
inline constexpr uint8_t persistSet = 0x13;
inline constexpr uint8_t tokenRead = 0x14;
inline constexpr uint8_t getAutoArb = 0x15;
inline constexpr uint8_t setAutoArb = 0x16;
inline constexpr uint8_t identity = 0x17;
inline constexpr uint8_t oneByte = 0x18;
inline constexpr uint8_t command19 = 0x19;
inline constexpr uint8_t command1A = 0x1A;
inline constexpr uint8_t recordSet = 0x1B;
inline constexpr uint8_t recordGet = 0x1C;
inline constexpr uint8_t certificateChain = 0x20;
inline constexpr uint8_t keyRevokeBits = 0x21;
inline constexpr uint8_t svnRevokeBits = 0x22;
inline constexpr uint8_t getResetReason = 0x23;
inline constexpr uint8_t setResetReason = 0x24;
inline constexpr uint8_t traceLogBasic = 0x30;
inline constexpr uint8_t traceLog = 0x31;
inline constexpr uint8_t healthPoll = 0x32;
inline constexpr uint8_t commandF0 = 0xF0;
inline constexpr uint8_t commandF1 = 0xF1;

inline constexpr std::array<uint8_t, 37> all = {
    0x01, 0x02, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B,
    0x0C, 0x0D, 0x0E, 0x0F, 0x10, 0x11, 0x12, 0x13, 0x14, 0x15,
    0x16, 0x17, 0x18, 0x19, 0x1A, 0x1B, 0x1C, 0x20, 0x21, 0x22,
    0x23, 0x24, 0x30, 0x31, 0x32, 0xF0, 0xF1};

// Replies that carry a format version byte, and where it stands.
struct VersionedReply
{
    uint8_t opcode;
    uint8_t offset;
};
inline constexpr std::array<VersionedReply, 10> versioned = {{
    {bprRead, 9},
    {componentInfoV2, 12},
    {bkcManifest, 9},
    {securitySettings, 9},
    {componentInfoV3, 12},
    {componentInfoV4, 12},
    {keyRevokeBits, 9},
    {svnRevokeBits, 9},
    {traceLogBasic, 12},
    {traceLog, 12},
}};

inline bool known(int opcode)
{
    return std::find(all.begin(), all.end(), opcode) != all.end();
}

} // namespace ubbsim::erot::op
