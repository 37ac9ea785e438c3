// The SMC's persist record, the 48-byte record and the plain commands.
#include "erot/byte_order.hpp"
#include "erot/erot_device.hpp"

#include <algorithm>

namespace ubbsim::erot
{

Bytes ErotDevice::persistGet(Request request)
{
    return ReplyFrame(request, status::ok).bytes(current.persist).take();
}

Bytes ErotDevice::persistSet(Request request)
{
    std::copy_n(request.begin() + 8, current.persist.size(),
                current.persist.begin());
    return statusOnly(request, status::ok);
}

Bytes ErotDevice::oneByte(Request request)
{
    return ReplyFrame(request, status::ok).u8(current.oneByte).take();
}

Bytes ErotDevice::acknowledge(Request request)
{
    return statusOnly(request, status::ok);
}

Bytes ErotDevice::commandF1(Request request)
{
    current.commandF1Value = le32(request, 8);
    return statusOnly(request, status::ok);
}

// Byte 8 selects the record (only 0 exists), byte 9 is 1 to set and 0 to
// clear.
Bytes ErotDevice::recordSet(Request request)
{
    if (request[8] != 0 || request[9] > 1)
    {
        return statusOnly(request, status::invalidArgument);
    }
    if (request[9] == 0)
    {
        current.record.reset();
        return statusOnly(request, status::ok);
    }
    std::array<uint8_t, 48> record{};
    std::copy_n(request.begin() + 10, record.size(), record.begin());
    current.record = record;
    return statusOnly(request, status::ok);
}

Bytes ErotDevice::recordGet(Request request)
{
    if (request[8] != 0)
    {
        return statusOnly(request, status::invalidArgument);
    }
    std::array<uint8_t, 48> record =
        current.record.value_or(std::array<uint8_t, 48>{});
    return ReplyFrame(request, status::ok)
        .u8(current.record ? 1 : 0)
        .bytes(record)
        .take();
}

} // namespace ubbsim::erot
