#include "erot/erot_device.hpp"

#include "erot/byte_order.hpp"
#include "erot/opcodes.hpp"

#include <algorithm>
#include <cstring>

namespace ubbsim::erot
{

namespace
{

constexpr uint8_t lastPage = 0x02;

} // namespace

Bytes statusOnly(std::span<const uint8_t> request, uint8_t code)
{
    return ReplyFrame(request, code).take();
}

const std::vector<ErotDevice::Command>& ErotDevice::commands()
{
    using D = ErotDevice;
    static const std::vector<Command> table = {
        {op::activeFlashConfigRead, 8, &D::activeFlashConfig},
        {op::imageVerify, 0, &D::imageVerify},
        {op::signalBootSuccess, 9, &D::signalBootSuccess},
        {op::bprRead, 8, &D::bprRead},
        {op::componentInfoV2, 11, &D::componentInfo},
        {op::bkcManifest, 8, &D::bkcManifest},
        {op::securitySettings, 8, &D::securitySettings},
        {op::setManageabilityFeature, 10, &D::setManageability},
        {op::tokenInstall, 643, &D::tokenInstall},
        {op::tokenErase, 8, &D::tokenErase},
        {op::deviceId, 8, &D::deviceId},
        {op::arbCommit, 8, &D::arbCommit},
        {op::componentInfoV3, 11, &D::componentInfo},
        {op::componentInfoV4, 11, &D::componentInfo},
        {op::selectActiveFlash, 10, &D::selectActiveFlash},
        {op::systemReset, 13, &D::systemReset},
        {op::persistGet, 8, &D::persistGet},
        {op::persistSet, 24, &D::persistSet},
        {op::tokenRead, 8, &D::tokenRead},
        {op::getAutoArb, 8, &D::getAutoArb},
        {op::setAutoArb, 9, &D::setAutoArb},
        {op::identity, 8, &D::identity},
        {op::oneByte, 8, &D::oneByte},
        {op::command19, 8, &D::acknowledge},
        {op::command1A, 8, &D::acknowledge},
        {op::recordSet, 58, &D::recordSet},
        {op::recordGet, 9, &D::recordGet},
        {op::certificateChain, 12, &D::certificateChain},
        {op::keyRevokeBits, 8, &D::keyRevokeBits},
        {op::svnRevokeBits, 8, &D::svnRevokeBits},
        {op::getResetReason, 8, &D::getResetReason},
        {op::setResetReason, 12, &D::setResetReason},
        {op::traceLogBasic, 11, &D::traceLog},
        {op::traceLog, 11, &D::traceLog},
        {op::healthPoll, 8, &D::healthPoll},
        {op::commandF0, 8, &D::acknowledge},
        {op::commandF1, 12, &D::commandF1},
    };
    return table;
}

ErotDevice::ErotDevice(ErotState state, Clock clock) :
    current(std::move(state)), clock(std::move(clock))
{}

Bytes ErotDevice::handle(std::span<const uint8_t> request)
{
    if (request.size() < headerSize)
    {
        return statusOnly(request, status::badLength);
    }
    const auto& table = commands();
    auto command = std::find_if(table.begin(), table.end(), [&](const auto& c) {
        return c.opcode == request[7];
    });
    if (command == table.end())
    {
        return statusOnly(request, status::unknownCommand);
    }
    if (command->length != 0 && request.size() != command->length)
    {
        return statusOnly(request, status::badLength);
    }
    return (this->*command->handler)(request);
}

void ErotDevice::setReporting(Reporting next)
{
    reporting = std::move(next);
}

void ErotDevice::smcReset()
{
    if (current.pendingSide != current.activeSide)
    {
        appendTrace("FLIP", current.activeSide, current.pendingSide, 5);
        current.activeSide = current.pendingSide;
        // The other side differs again once the SMC boots from a new one:
        // its copy is no longer complete.
        current.persist[persistFlagsByte] &=
            static_cast<uint8_t>(~persistCopyCompleted);
    }
    // Paged reads don't survive the SMC that started them.
    componentPages = {};
    tracePages = {};
}

bool ErotDevice::takeResetRequest()
{
    return std::exchange(resetRequested, false);
}

void ErotDevice::appendTrace(const char (&tag)[5], uint32_t data1,
                             uint32_t data2, uint8_t severity)
{
    TraceRecord record;
    record.timestamp = current.traceClockBase + clock();
    std::memcpy(record.tag.data(), tag, record.tag.size());
    record.data1 = data1;
    record.data2 = data2;
    record.severity = severity;
    current.appendTrace(record);
    if (severity == 4)
    {
        current.health |= healthNonFatal;
    }
    if (severity == 3)
    {
        current.health |= healthFatal;
    }
}

Bytes ErotDevice::page(Request request, Paging& paging, uint8_t version,
                       size_t size, uint8_t extraFlags)
{
    size_t from = request[8] == 0 ? 0 : le16(request, 9);
    bool continues = request[8] == 1 && paging.opcode == request[7];
    if ((request[8] != 0 && !continues) || from > paging.entries.size())
    {
        return statusOnly(request, status::invalidArgument);
    }
    size_t to =
        std::min(paging.entries.size(), from + std::max<size_t>(size, 1));
    uint8_t flags = extraFlags;
    if (to == paging.entries.size())
    {
        flags |= lastPage;
    }
    ReplyFrame reply(request, status::ok);
    reply.u8(flags).u16(static_cast<uint16_t>(to)).u8(version);
    for (size_t i = from; i < to; ++i)
    {
        reply.bytes(paging.entries[i]);
    }
    return reply.take();
}

} // namespace ubbsim::erot
