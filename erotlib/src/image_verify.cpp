// Image verification: the device checks an image's digest against its
// signed header.
#include "frame.hpp"

namespace erot
{

using namespace detail;

namespace
{

constexpr size_t verifyComponentOffset = 9;
constexpr size_t verifyDigestOffset = 11;
constexpr size_t verifyLengthOffset = 59;
constexpr size_t verifyDataOffset = 61;

} // namespace

int ErotImageVerify(uint8_t flags, uint16_t componentId, const uint8_t* hash,
                    uint16_t dataLength, const uint8_t* data,
                    uint8_t* pErrorCode)
{
    if (hash == nullptr || data == nullptr || dataLength == 0)
    {
        return -EINVAL;
    }
    size_t requestLength = verifyDataOffset + dataLength;
    auto request = allocate<uint8_t>(requestLength);
    if (!request)
    {
        return -ENOMEM;
    }
    uint8_t* frame = request.get();
    frame[frameHeaderSize] = flags;
    putLe16(frame + verifyComponentOffset, componentId);
    std::memcpy(frame + verifyDigestOffset, hash, imageDigestSize);
    putLe16(frame + verifyLengthOffset, dataLength);
    std::memcpy(frame + verifyDataOffset, data, dataLength);

    std::array<uint8_t, minResponseSize> response{};
    return ErotTransact(opcode::imageVerify, frame, requestLength,
                        response.data(), response.size(), nullptr, pErrorCode);
}

} // namespace erot
