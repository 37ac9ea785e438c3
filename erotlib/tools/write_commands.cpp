#include "write_commands.hpp"

#include "text_format.hpp"
#include "value_parsers.hpp"

#include <erotlib/erot.hpp>

namespace erotctl
{

namespace
{

Result reported(const Invocation& call, int returned, uint8_t status,
                nlohmann::ordered_json sent)
{
    if (failed(returned, status))
    {
        return failure(call.command, returned, status);
    }
    return succeeded(call.command, call.command + ": accepted\n",
                     {{"sent", std::move(sent)}});
}

Result badOperand(const Invocation& call, const std::string& expected)
{
    return usageError(call.command + " expects " + expected);
}

} // namespace

Result writeSelectFlash(const Invocation& call)
{
    auto side = parseSide(call.operands[0]);
    if (!side)
    {
        return badOperand(call, "side A or B");
    }
    uint8_t persist = call.has("--persist") ? 1 : 0;
    uint8_t status = 0;
    int r = erot::ErotSelectActiveFlash(*side, persist, &status);
    return reported(call, r, status,
                    {{"side", *side}, {"persist", persist != 0}});
}

Result writeSignalBootSuccess(const Invocation& call)
{
    auto stage = parseNumber(call.operands[0], 0xFF);
    if (!stage)
    {
        return badOperand(call, "a stage from 0 to 255");
    }
    uint8_t status = 0;
    int r = erot::ErotSignalBootSuccess(static_cast<uint8_t>(*stage), &status);
    return reported(call, r, status, {{"stage", *stage}});
}

Result writeArbCommit(const Invocation& call)
{
    uint8_t status = 0;
    int r = erot::ErotARBCommit(&status);
    return reported(call, r, status, nlohmann::ordered_json::object());
}

Result writeSetAutoArb(const Invocation& call)
{
    auto enabled = parseOnOff(call.operands[0]);
    if (!enabled)
    {
        return badOperand(call, "on or off");
    }
    uint8_t status = 0;
    int r = erot::ErotSetAutoARBCommit(*enabled ? 1 : 0, &status);
    return reported(call, r, status, {{"enabled", *enabled}});
}

Result writeSetResetReason(const Invocation& call)
{
    auto reason = parseNumber(call.operands[0], UINT32_MAX);
    if (!reason)
    {
        return badOperand(call, "a 32-bit reason");
    }
    uint8_t status = 0;
    int r = erot::ErotSetResetReason(*reason, &status);
    return reported(call, r, status, {{"resetReason", *reason}});
}

Result writeSystemReset(const Invocation& call)
{
    auto type = parseNumber(call.operands[0], 0xFF);
    if (!type)
    {
        return badOperand(call, "a reset type from 0 to 255");
    }
    uint8_t status = 0;
    int r = erot::ErotSystemReset(static_cast<uint8_t>(*type), &status);
    return reported(call, r, status, {{"resetType", *type}});
}

Result writePersistSet(const Invocation& call)
{
    auto record = parseHexBytes(call.operands[0], erot::smcPersistSize);
    if (!record)
    {
        return badOperand(call, "the 16-byte record as 32 hex digits");
    }
    uint8_t status = 0;
    int r = erot::ErotSMCPersistSet(record->data(), record->size(), &status);
    return reported(call, r, status,
                    {{"raw", hexBytes(record->data(), record->size())}});
}

Result writeSetManageability(const Invocation& call)
{
    auto feature = parseNumber(call.operands[0], 31);
    auto value = parseNumber(call.operands[1], 0xFF);
    if (!feature || !value)
    {
        return badOperand(call, "a feature from 0 to 31 and a value from 0 "
                                "to 255");
    }
    uint8_t status = 0;
    int r = erot::ErotSetManageabilityFeature(
        static_cast<uint8_t>(*feature), static_cast<uint8_t>(*value), &status);
    return reported(call, r, status,
                    {{"feature", *feature}, {"value", *value}});
}

} // namespace erotctl
