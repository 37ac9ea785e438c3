// Flash sides, boot partitions, boot success and reset.
#include "frame.hpp"

#include <cstdio>

namespace erot
{

using namespace detail;

namespace
{

constexpr uint32_t systemResetGuard = 0x5A17C3E9;
constexpr size_t bprResponseCapacity = 779;
constexpr uint8_t bprFormatVersion = 1;

// Version, count, then the records from byte 11.
constexpr size_t bprCountOffset = 10;
constexpr size_t bprEntriesOffset = 11;

} // namespace

int ErotActiveFlashConfigRead(uint32_t* pActive, uint32_t* pPending,
                              bool* pUpdateOnReboot, uint8_t* pErrorCode)
{
    if (pActive == nullptr || pPending == nullptr)
    {
        return -EINVAL;
    }
    Exchange<8, 12> exchange;
    int r = exchange.run(opcode::activeFlashConfigRead, pErrorCode);
    // Stored whatever happened: a failed call reads as zeros.
    *pActive = exchange.reply()[0];
    *pPending = exchange.reply()[1];
    if (pUpdateOnReboot != nullptr)
    {
        *pUpdateOnReboot = exchange.reply()[2] != 0;
    }
    return r;
}

int ErotSignalBootSuccess(uint8_t stage, uint8_t* pErrorCode)
{
    Exchange<9, minResponseSize> exchange;
    exchange.payload()[0] = stage;
    return statusOnly(opcode::signalBootSuccess, exchange, pErrorCode);
}

namespace
{

int parseBpr(const uint8_t* response, size_t received, uint32_t* pCount,
             BootPartitionRecord** pEntries)
{
    uint8_t version = response[payloadOffset];
    if (version != bprFormatVersion)
    {
        std::fprintf(stderr, "Unexpected BPR format version %d\n", version);
        return -EPROTONOSUPPORT;
    }
    if (received <= bprCountOffset)
    {
        std::fprintf(stderr, "Short BPR response\n");
        return -EPROTO;
    }
    uint8_t count = response[bprCountOffset];
    // Only a warning: the records are taken as the count says. The buffer
    // has room for 255 of them, so the copy stays inside it.
    if (received != bprEntriesOffset + sizeof(BootPartitionRecord) * count)
    {
        std::fprintf(stderr, "Wrong length BPR response\n");
    }
    if (count == 0)
    {
        return 0;
    }
    auto entries = allocate<BootPartitionRecord>(count);
    if (!entries)
    {
        return -ENOMEM;
    }
    std::memcpy(entries.get(), response + bprEntriesOffset,
                sizeof(BootPartitionRecord) * count);
    *pEntries = entries.release();
    *pCount = count;
    return 0;
}

} // namespace

int ErotBPRRead(uint32_t* pCount, BootPartitionRecord** pEntries,
                uint8_t* pErrorCode)
{
    if (pCount == nullptr || pEntries == nullptr)
    {
        return -EINVAL;
    }
    *pCount = 0;
    *pEntries = nullptr;
    std::array<uint8_t, frameHeaderSize> request{};
    std::array<uint8_t, bprResponseCapacity> response{};
    size_t received = 0;
    int r =
        ErotTransact(opcode::bprRead, request.data(), request.size(),
                     response.data(), response.size(), &received, pErrorCode);
    if (!accepted(r, pErrorCode))
    {
        return r;
    }
    return parseBpr(response.data(), received, pCount, pEntries);
}

int ErotARBCommit(uint8_t* pErrorCode)
{
    return statusOnly(opcode::arbCommit, pErrorCode);
}

int ErotSelectActiveFlash(uint8_t side, uint8_t persist, uint8_t* pErrorCode)
{
    if (side > 1)
    {
        return -EINVAL;
    }
    Exchange<10, minResponseSize> exchange;
    exchange.payload()[0] = side;
    exchange.payload()[1] = persist;
    return statusOnly(opcode::selectActiveFlash, exchange, pErrorCode);
}

int ErotSystemReset(uint8_t resetType, uint8_t* pErrorCode)
{
    // The guard word keeps a corrupted frame from resetting the board.
    Exchange<13, minResponseSize> exchange;
    putLe32(exchange.payload(), systemResetGuard);
    exchange.payload()[4] = resetType;
    return statusOnly(opcode::systemReset, exchange, pErrorCode);
}

int ErotGetAutoARBCommit(bool* pEnabled, uint8_t* pErrorCode)
{
    if (pEnabled == nullptr)
    {
        return -EINVAL;
    }
    Exchange<8, 10> exchange;
    int r = exchange.run(opcode::getAutoArbCommit, pErrorCode);
    if (accepted(r, pErrorCode))
    {
        *pEnabled = exchange.reply()[0] != 0;
    }
    return r;
}

int ErotSetAutoARBCommit(uint8_t enabled, uint8_t* pErrorCode)
{
    Exchange<9, minResponseSize> exchange;
    exchange.payload()[0] = enabled;
    return statusOnly(opcode::setAutoArbCommit, exchange, pErrorCode);
}

int ErotGetResetReason(uint32_t* pReason, uint8_t* pErrorCode)
{
    if (pReason == nullptr)
    {
        return -EINVAL;
    }
    Exchange<8, 13> exchange;
    int r = exchange.run(opcode::getResetReason, pErrorCode);
    if (r == 0)
    {
        *pReason = getLe32(exchange.reply());
    }
    return r;
}

int ErotSetResetReason(uint32_t reason, uint8_t* pErrorCode)
{
    Exchange<12, minResponseSize> exchange;
    putLe32(exchange.payload(), reason);
    return statusOnly(opcode::setResetReason, exchange, pErrorCode);
}

} // namespace erot
