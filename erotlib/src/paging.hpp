#pragma once

#include "frame.hpp"

namespace erot::detail
{

// Head of every page: status, flags, continuation token, format version,
// then the entries.
inline constexpr size_t pageFlagsOffset = 9;
inline constexpr size_t pageTokenOffset = 10;
inline constexpr size_t pageVersionOffset = 12;
inline constexpr size_t pageEntriesOffset = 13;

inline constexpr uint8_t pageFlagLast = 0x02;
inline constexpr uint8_t pageFlagOverflow = 0x04;

// Walks the pages of one paged read, each answer landing in the same
// response buffer.
class PageReader
{
  public:
    PageReader(uint8_t op, uint8_t* response, size_t capacity) :
        op(op), response(response), capacity(capacity)
    {}

    // Asks for the next page; `received` is its length on a 0 return.
    int next(uint8_t* pErrorCode, size_t& received)
    {
        std::array<uint8_t, frameHeaderSize + 3> request{};
        request[frameHeaderSize] = first ? 0 : 1;
        putLe16(request.data() + frameHeaderSize + 1, token);
        first = false;
        return ErotTransact(op, request.data(), request.size(), response,
                            capacity, &received, pErrorCode);
    }

    // Takes the token of the page just read for the next request.
    void advance()
    {
        token = getLe16(response + pageTokenOffset);
    }

    uint8_t flags() const
    {
        return response[pageFlagsOffset];
    }

    uint8_t version() const
    {
        return response[pageVersionOffset];
    }

    const uint8_t* entries() const
    {
        return response + pageEntriesOffset;
    }

  private:
    uint8_t op;
    uint8_t* response;
    size_t capacity;
    bool first = true;
    uint16_t token = 0;
};

} // namespace erot::detail
