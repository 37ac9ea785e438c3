// The eRoT's own trace log, read page by page, and its health word.
#include "paging.hpp"

#include <cstdio>

namespace erot
{

using namespace detail;

namespace
{

constexpr size_t traceLogResponseSize =
    pageEntriesOffset + traceLogMaxEntries * traceLogV2Size;

constexpr uint8_t severityInformation = 5;
// Reported by some firmware for what is plain information.
constexpr uint8_t severityVerbose = 6;

struct TraceLogRead
{
    uint8_t op;
    TraceLogEntry* entries;
    uint32_t count = 0;
    int version = -1;
    size_t entrySize = 0;
    bool overflowed = false;
};

// The basic read also takes the older 20-byte format.
size_t entrySizeFor(uint8_t op, uint8_t version)
{
    if (version == 2)
    {
        return traceLogV2Size;
    }
    if (version == 1 && op == opcode::traceLogBasic)
    {
        return traceLogV1Size;
    }
    return 0;
}

int checkVersion(TraceLogRead& read, uint8_t version)
{
    if (read.version < 0)
    {
        read.entrySize = entrySizeFor(read.op, version);
        if (read.entrySize != 0)
        {
            read.version = version;
            return 0;
        }
    }
    else if (version == read.version)
    {
        return 0;
    }
    std::printf("Unknown Trace Log version %d, expected %d\n", version,
                read.version);
    return -EPROTO;
}

void copyEntry(TraceLogEntry& record, const uint8_t* entry, size_t size)
{
    auto* bytes = reinterpret_cast<uint8_t*>(&record);
    bytes[traceLogV1Size] = severityInformation;
    std::memcpy(bytes, entry, size);
    if (bytes[traceLogV1Size] == severityVerbose)
    {
        bytes[traceLogV1Size] = severityInformation;
    }
}

// Checks one page and appends its entries; `pageCount` is how many.
int takePage(TraceLogRead& read, const PageReader& page, size_t received,
             size_t& pageCount)
{
    if (received < pageEntriesOffset)
    {
        std::printf("Short Trace Log response");
        return -EPROTO;
    }
    int r = checkVersion(read, page.version());
    if (r != 0)
    {
        return r;
    }
    size_t bytes = received - pageEntriesOffset;
    if (bytes % read.entrySize != 0)
    {
        std::printf("Bad Trace Log length %u\n",
                    static_cast<unsigned>(received));
        return -EPROTO;
    }
    pageCount = bytes / read.entrySize;
    if (read.count + pageCount > traceLogMaxEntries)
    {
        std::printf("Trace Log too many responses");
        return -EPROTO;
    }
    for (size_t i = 0; i < pageCount; ++i)
    {
        copyEntry(read.entries[read.count + i],
                  page.entries() + i * read.entrySize, read.entrySize);
    }
    read.count += static_cast<uint32_t>(pageCount);
    if ((page.flags() & pageFlagOverflow) != 0)
    {
        read.overflowed = true;
    }
    return 0;
}

int readTraceLog(uint8_t op, uint32_t* pCount, TraceLogEntry** pEntries,
                 bool* pOverflowed, uint8_t* pErrorCode)
{
    if (pCount == nullptr || pEntries == nullptr)
    {
        return -EINVAL;
    }
    auto response = allocate<uint8_t>(traceLogResponseSize);
    auto entries = allocate<TraceLogEntry>(traceLogMaxEntries);
    if (!response || !entries)
    {
        return -ENOMEM;
    }

    PageReader page(op, response.get(), traceLogResponseSize);
    TraceLogRead read{op, entries.get()};
    for (;;)
    {
        size_t received = 0;
        int r = page.next(pErrorCode, received);
        if (!accepted(r, pErrorCode))
        {
            return r;
        }
        size_t pageCount = 0;
        r = takePage(read, page, received, pageCount);
        if (r != 0)
        {
            return r;
        }
        // The stop rule looks at this page's own count, not at the number
        // of pages: a device that keeps sending pages is followed.
        if ((page.flags() & pageFlagLast) != 0 ||
            pageCount + 1 >= traceLogMaxEntries)
        {
            break;
        }
        page.advance();
    }
    *pEntries = entries.release();
    *pCount = read.count;
    if (pOverflowed != nullptr)
    {
        *pOverflowed = read.overflowed;
    }
    return 0;
}

} // namespace

int ErotGetTraceLog(uint32_t* pCount, TraceLogEntry** pEntries,
                    bool* pOverflowed, uint8_t* pErrorCode)
{
    return readTraceLog(opcode::traceLog, pCount, pEntries, pOverflowed,
                        pErrorCode);
}

int ErotGetTraceLogBasic(uint32_t* pCount, TraceLogEntry** pEntries,
                         bool* pOverflowed, uint8_t* pErrorCode)
{
    return readTraceLog(opcode::traceLogBasic, pCount, pEntries, pOverflowed,
                        pErrorCode);
}

int ErotHealthStatusPoll(uint8_t* pHealth, uint8_t* pErrorCode)
{
    if (pHealth == nullptr)
    {
        return -EINVAL;
    }
    pHealth[0] = 0;
    pHealth[1] = 0;
    Exchange<8, 11> exchange;
    int r = exchange.run(opcode::healthStatusPoll, pErrorCode);
    if (accepted(r, pErrorCode))
    {
        pHealth[0] = exchange.reply()[0];
        pHealth[1] = 0xFF;
    }
    return r;
}

} // namespace erot
