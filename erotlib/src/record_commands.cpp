// The SMC persist record, the 48-byte record slot and the plain commands.
#include "frame.hpp"

#include <cstdio>

namespace erot
{

using namespace detail;

int ErotSMCPersistGet(uint8_t* buffer, size_t length, uint16_t* pOutLength,
                      uint8_t* pErrorCode)
{
    if (length != smcPersistSize)
    {
        std::fprintf(stderr, "ErotSMCPersistGet requires length == %u\n",
                     static_cast<unsigned>(smcPersistSize));
        return -EINVAL;
    }
    if (buffer == nullptr || pOutLength == nullptr)
    {
        return -EINVAL;
    }
    Exchange<8, payloadOffset + smcPersistSize> exchange;
    int r = exchange.run(opcode::smcPersistGet, pErrorCode);
    // Copied whatever the status; the callers test it before use.
    if (r == 0)
    {
        std::memcpy(buffer, exchange.reply(), smcPersistSize);
        *pOutLength = smcPersistSize;
    }
    return r;
}

int ErotSMCPersistSet(const uint8_t* buffer, size_t length, uint8_t* pErrorCode)
{
    if (length != smcPersistSize)
    {
        std::fprintf(stderr, "ErotSMCPersistSet requires length == %u\n",
                     static_cast<unsigned>(smcPersistSize));
        return -EINVAL;
    }
    if (buffer == nullptr)
    {
        return -EINVAL;
    }
    Exchange<frameHeaderSize + smcPersistSize, minResponseSize> exchange;
    std::memcpy(exchange.payload(), buffer, smcPersistSize);
    return statusOnly(opcode::smcPersistSet, exchange, pErrorCode);
}

int ErotGetOneByte(uint8_t* pValue, uint8_t* pErrorCode)
{
    if (pValue == nullptr)
    {
        return -EINVAL;
    }
    *pValue = 0;
    Exchange<8, 10> exchange;
    int r = exchange.run(opcode::oneByte, pErrorCode);
    if (accepted(r, pErrorCode))
    {
        *pValue = exchange.reply()[0];
    }
    return r;
}

int ErotCommand19(uint8_t* pErrorCode)
{
    return statusOnly(opcode::command19, pErrorCode);
}

int ErotCommand1A(uint8_t* pErrorCode)
{
    return statusOnly(opcode::command1A, pErrorCode);
}

int ErotCommandF0(uint8_t* pErrorCode)
{
    return statusOnly(opcode::commandF0, pErrorCode);
}

int ErotCommandF1(uint32_t value, uint8_t* pErrorCode)
{
    Exchange<12, minResponseSize> exchange;
    putLe32(exchange.payload(), value);
    return statusOnly(opcode::commandF1, exchange, pErrorCode);
}

namespace
{

// Set and clear share one frame: a zero byte, a presence byte and the
// record.
using RecordExchange =
    Exchange<frameHeaderSize + 2 + recordSize, minResponseSize>;

} // namespace

int ErotRecordSet(const uint8_t* record, size_t length, uint8_t* pErrorCode)
{
    if (record == nullptr || length != recordSize)
    {
        return -EINVAL;
    }
    RecordExchange exchange;
    exchange.payload()[1] = 1;
    std::memcpy(exchange.payload() + 2, record, recordSize);
    return statusOnly(opcode::recordSet, exchange, pErrorCode);
}

int ErotRecordClear(uint8_t* pErrorCode)
{
    RecordExchange exchange;
    return statusOnly(opcode::recordSet, exchange, pErrorCode);
}

int ErotRecordGet(bool* pPresent, uint8_t* record, uint8_t* pErrorCode)
{
    if (pPresent == nullptr || record == nullptr)
    {
        return -EINVAL;
    }
    Exchange<9, payloadOffset + 1 + recordSize> exchange;
    int r = exchange.run(opcode::recordGet, pErrorCode);
    if (!accepted(r, pErrorCode))
    {
        return r;
    }
    *pPresent = exchange.reply()[0] != 0;
    if (*pPresent)
    {
        std::memcpy(record, exchange.reply() + 1, recordSize);
    }
    else
    {
        std::memset(record, 0, recordSize);
    }
    return 0;
}

} // namespace erot
