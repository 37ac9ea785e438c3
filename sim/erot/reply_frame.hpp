#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace ubbsim::erot
{

using Bytes = std::vector<uint8_t>;

// Status bytes of the device.
namespace status
{
inline constexpr uint8_t ok = 0x00;
inline constexpr uint8_t unknownCommand = 0x01;
inline constexpr uint8_t badLength = 0x02;
inline constexpr uint8_t invalidArgument = 0x03;
inline constexpr uint8_t verifyFailed = 0x80;
} // namespace status

inline constexpr size_t headerSize = 8;

// A response: the request's header echoed, the status, then the payload
// appended field by field, little-endian.
class ReplyFrame
{
  public:
    ReplyFrame(std::span<const uint8_t> request, uint8_t status);

    ReplyFrame& u8(uint8_t value);
    ReplyFrame& u16(uint16_t value);
    ReplyFrame& u32(uint32_t value);
    ReplyFrame& u64(uint64_t value);
    ReplyFrame& bytes(std::span<const uint8_t> data);

    Bytes take()
    {
        return std::move(frame);
    }

  private:
    Bytes frame;
};

} // namespace ubbsim::erot
