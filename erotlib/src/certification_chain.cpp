// The device's certificate chain, fetched in portions.
#include "frame.hpp"

#include <cstdio>

namespace erot
{

using namespace detail;

namespace
{

constexpr size_t chainMaxLength = 6144;
constexpr size_t portionHeadSize = 13;
constexpr size_t chainResponseSize = portionHeadSize + chainMaxLength;
// A chain holds at least one certificate; anything this short is not one.
constexpr size_t chainMinLength = 52;

struct ChainRead
{
    uint8_t* chain;
    uint16_t offset = 0;
    size_t total = 0;
};

// Asks for the rest of the chain from `read.offset`; on success appends
// the portion and reports the length still to come.
int readPortion(ChainRead& read, uint8_t* response, uint8_t* pErrorCode,
                uint16_t& remaining)
{
    std::array<uint8_t, frameHeaderSize + 4> request{};
    auto wanted = static_cast<uint16_t>(chainMaxLength - read.offset);
    putLe16(request.data() + frameHeaderSize, read.offset);
    putLe16(request.data() + frameHeaderSize + 2, wanted);
    size_t received = 0;
    int r =
        ErotTransact(opcode::certificationChain, request.data(), request.size(),
                     response, chainResponseSize, &received, pErrorCode);
    if (!accepted(r, pErrorCode))
    {
        return r;
    }
    uint16_t portion = getLe16(response + payloadOffset);
    if (received < portionHeadSize || portion != received - portionHeadSize ||
        portion > wanted || portion == 0)
    {
        std::printf("Bad Get Certification Chain portion %u\n", portion);
        return -EIO;
    }
    std::memcpy(read.chain + read.total, response + portionHeadSize, portion);
    read.total += portion;
    read.offset = static_cast<uint16_t>(read.offset + portion);
    remaining = getLe16(response + payloadOffset + 2);
    return 0;
}

int checkChain(const ChainRead& read)
{
    if (read.total < chainMinLength)
    {
        std::printf("Bad Chain total length %u\n",
                    static_cast<unsigned>(read.total));
        return -EIO;
    }
    uint16_t declared = getLe16(read.chain);
    if (declared != read.total)
    {
        std::printf("Mismatch chain total length %u vs %u\n", declared,
                    static_cast<unsigned>(read.total));
        return -EIO;
    }
    return 0;
}

} // namespace

int ErotGetCertificationChain(uint8_t** pChain, uint8_t* pErrorCode)
{
    if (pChain == nullptr)
    {
        return -EINVAL;
    }
    *pChain = nullptr;
    auto chain = allocate<uint8_t>(certificationChainBufferSize);
    auto response = allocate<uint8_t>(chainResponseSize);
    if (!chain || !response)
    {
        return -ENOMEM;
    }
    ChainRead read{chain.get()};
    // Each portion must be non-empty and no more than asked for, so the
    // offset only grows and the loop ends by 6144 bytes at the latest.
    uint16_t remaining = 0;
    do
    {
        int r = readPortion(read, response.get(), pErrorCode, remaining);
        // A refusal part-way ends the read with the device's status.
        if (!accepted(r, pErrorCode))
        {
            return r;
        }
    } while (remaining != 0);

    int r = checkChain(read);
    if (r == 0)
    {
        *pChain = chain.release();
    }
    return r;
}

} // namespace erot
