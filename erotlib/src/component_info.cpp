// Component information, read page by page in one of three formats.
#include "paging.hpp"

#include <cstdio>

namespace erot
{

using namespace detail;

namespace
{

constexpr size_t componentInfoResponseSize =
    pageEntriesOffset + componentInfoMaxEntries * componentInfoV4Size;

struct ComponentInfoFormat
{
    uint8_t op;
    uint8_t version;
    size_t entrySize;
};

ComponentInfoFormat formatFor(uint8_t version)
{
    switch (version)
    {
        case 4:
            return {opcode::componentInfoV4, 4, componentInfoV4Size};
        case 3:
            return {opcode::componentInfoV3, 3, componentInfoV3Size};
        default:
            return {opcode::componentInfoV2, 2, componentInfoV2Size};
    }
}

// Checks one page and copies its entries behind the `count` already held.
int takePage(const ComponentInfoFormat& format, const PageReader& page,
             size_t received, ComponentInfo* entries, uint32_t& count)
{
    if (received < pageEntriesOffset)
    {
        std::printf("Short Get Component Info response");
        return -EPROTO;
    }
    if (page.version() != format.version)
    {
        std::printf("Unknown Get Component Info version %d:%d\n",
                    format.version, page.version());
        return -EPROTO;
    }
    size_t bytes = received - pageEntriesOffset;
    if (bytes % format.entrySize != 0)
    {
        std::printf("Bad Get Component Info length %u\n",
                    static_cast<unsigned>(received));
        return -EPROTO;
    }
    size_t pageCount = bytes / format.entrySize;
    if (count + pageCount > componentInfoMaxEntries)
    {
        std::printf("Get Component Info too many responses");
        return -EPROTO;
    }
    // Shorter formats land in zeroed 334-byte slots.
    for (size_t i = 0; i < pageCount; ++i)
    {
        std::memcpy(&entries[count + i], page.entries() + i * format.entrySize,
                    format.entrySize);
    }
    count += static_cast<uint32_t>(pageCount);
    return 0;
}

} // namespace

int ErotGetComponentInfo(uint8_t version, uint32_t* pCount,
                         ComponentInfo** pEntries, uint8_t* pErrorCode)
{
    if (pCount == nullptr || pEntries == nullptr)
    {
        return -EINVAL;
    }
    ComponentInfoFormat format = formatFor(version);
    auto response = allocate<uint8_t>(componentInfoResponseSize);
    auto entries = allocate<ComponentInfo>(componentInfoMaxEntries);
    if (!response || !entries)
    {
        return -ENOMEM;
    }

    PageReader page(format.op, response.get(), componentInfoResponseSize);
    uint32_t count = 0;
    // A device that never marks the last page is cut off here, and what
    // it sent so far still counts.
    for (size_t request = 0; request < componentInfoMaxRequests; ++request)
    {
        size_t received = 0;
        int r = page.next(pErrorCode, received);
        if (!accepted(r, pErrorCode))
        {
            return r;
        }
        r = takePage(format, page, received, entries.get(), count);
        if (r != 0)
        {
            return r;
        }
        if ((page.flags() & pageFlagLast) != 0)
        {
            break;
        }
        page.advance();
    }
    *pEntries = entries.release();
    *pCount = count;
    return 0;
}

int ErotGetComponentInfoV2(uint32_t* pCount, ComponentInfo** pEntries,
                           uint8_t* pErrorCode)
{
    return ErotGetComponentInfo(2, pCount, pEntries, pErrorCode);
}

int ErotGetComponentInfoV3(uint32_t* pCount, ComponentInfo** pEntries,
                           uint8_t* pErrorCode)
{
    return ErotGetComponentInfo(3, pCount, pEntries, pErrorCode);
}

int ErotGetComponentInfoV4(uint32_t* pCount, ComponentInfo** pEntries,
                           uint8_t* pErrorCode)
{
    return ErotGetComponentInfo(4, pCount, pEntries, pErrorCode);
}

} // namespace erot
