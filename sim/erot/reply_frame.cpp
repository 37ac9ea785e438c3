#include "erot/reply_frame.hpp"

#include <algorithm>

namespace ubbsim::erot
{

ReplyFrame::ReplyFrame(std::span<const uint8_t> request, uint8_t status) :
    frame(headerSize, 0)
{
    std::copy_n(request.begin(), std::min(request.size(), headerSize),
                frame.begin());
    frame.push_back(status);
}

ReplyFrame& ReplyFrame::u8(uint8_t value)
{
    frame.push_back(value);
    return *this;
}

ReplyFrame& ReplyFrame::u16(uint16_t value)
{
    return u8(static_cast<uint8_t>(value)).u8(static_cast<uint8_t>(value >> 8));
}

ReplyFrame& ReplyFrame::u32(uint32_t value)
{
    return u16(static_cast<uint16_t>(value))
        .u16(static_cast<uint16_t>(value >> 16));
}

ReplyFrame& ReplyFrame::u64(uint64_t value)
{
    return u32(static_cast<uint32_t>(value))
        .u32(static_cast<uint32_t>(value >> 32));
}

ReplyFrame& ReplyFrame::bytes(std::span<const uint8_t> data)
{
    frame.insert(frame.end(), data.begin(), data.end());
    return *this;
}

} // namespace ubbsim::erot
