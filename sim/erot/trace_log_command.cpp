#include "erot/byte_order.hpp"
#include "erot/erot_device.hpp"
#include "erot/opcodes.hpp"

#include <algorithm>

namespace ubbsim::erot
{

namespace
{

constexpr uint8_t overflowed = 0x04;
// Time stamp (8), tag (4), two data words (4 each), then the severity,
// which format 1 lacks.
constexpr size_t entryV2Size = 21;
constexpr size_t entryV1Size = 20;

Bytes traceEntry(const TraceRecord& record, size_t size)
{
    Bytes entry(entryV2Size);
    putLe64(entry, 0, record.timestamp);
    std::copy(record.tag.begin(), record.tag.end(), entry.begin() + 8);
    putLe32(entry, 12, record.data1);
    putLe32(entry, 16, record.data2);
    entry[20] = record.severity;
    entry.resize(size);
    return entry;
}

} // namespace

// The basic read gives format version 1, whose entries lack the severity.
Bytes ErotDevice::traceLog(Request request)
{
    bool basic = request[7] == op::traceLogBasic;
    size_t size = basic ? entryV1Size : entryV2Size;
    if (request[8] == 0)
    {
        tracePages = {request[7], {}};
        for (const TraceRecord& record : current.traceLog)
        {
            tracePages.entries.push_back(traceEntry(record, size));
        }
    }
    return page(request, tracePages, basic ? 1 : 2, current.traceLogPage,
                current.traceOverflowed ? overflowed : 0);
}

Bytes ErotDevice::healthPoll(Request request)
{
    return ReplyFrame(request, status::ok).u8(current.health).u8(0).take();
}

} // namespace ubbsim::erot
