#include "frame.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace erot
{

namespace
{

// Vendor-defined MCTP message, vendor identifier in this byte order.
constexpr std::array<uint8_t, frameHeaderSize - 1> frameHeader = {
    0x7F, 0x00, 0x00, 0x5B, 0x2C, 0x00, 0x00};

} // namespace

int ErotTransact(uint8_t opcode, uint8_t* request, size_t requestLength,
                 uint8_t* response, size_t responseSize,
                 size_t* pResponseLength, uint8_t* pErrorCode)
{
    if (pErrorCode == nullptr)
    {
        std::fprintf(stderr, "Missing pErrorCode\n");
        return -EINVAL;
    }
    if (request == nullptr || requestLength < frameHeaderSize ||
        response == nullptr)
    {
        return -EINVAL;
    }
    std::memcpy(request, frameHeader.data(), frameHeader.size());
    request[frameHeaderSize - 1] = opcode;

    size_t received = 0;
    int r =
        detail::currentTransport()(request, requestLength, response,
                                   responseSize, commandTimeoutMs, &received);
    // A replacement transport must keep to the capacity like the bus one.
    if (r == 0 && received > responseSize)
    {
        r = -EIO;
    }
    if (r != 0)
    {
        *pErrorCode = 0xFF;
        std::memset(response, 0, responseSize);
        return r < 0 ? r : -EIO;
    }

    if (received < minResponseSize)
    {
        std::fprintf(stderr, "Short response for opcode 0x%02x\n", opcode);
        return -EPROTO;
    }
    uint8_t status = response[detail::statusOffset];
    if (pResponseLength != nullptr)
    {
        *pResponseLength = received;
    }
    else if (status == 0 && received != responseSize)
    {
        std::fprintf(stderr,
                     "Unexpected response length for opcode 0x%02x. "
                     "Expected %u, got %u\n",
                     opcode, static_cast<unsigned>(responseSize),
                     static_cast<unsigned>(received));
        return -EPROTO;
    }
    *pErrorCode = status;
    return 0;
}

} // namespace erot
