#include "erot/state_json.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace ubbsim::erot
{

using nlohmann::json;

namespace
{

std::vector<uint8_t> unhex(const json& value)
{
    const std::string& text = value.get_ref<const std::string&>();
    if (text.size() % 2 != 0 ||
        text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
    {
        throw std::runtime_error("not hexadecimal bytes: " + text);
    }
    std::vector<uint8_t> bytes(text.size() / 2);
    for (size_t i = 0; i < bytes.size(); ++i)
    {
        bytes[i] = static_cast<uint8_t>(
            std::stoul(text.substr(2 * i, 2), nullptr, 16));
    }
    return bytes;
}

template <size_t N>
std::array<uint8_t, N> unhexFixed(const json& value)
{
    std::vector<uint8_t> bytes = unhex(value);
    if (bytes.size() != N)
    {
        throw std::runtime_error("expected " + std::to_string(N) + " bytes");
    }
    std::array<uint8_t, N> fixed{};
    std::copy(bytes.begin(), bytes.end(), fixed.begin());
    return fixed;
}

json sideJson(const SideInfo& side)
{
    return {{"version", side.version},
            {"svn", side.svn},
            {"keyId", side.keyId},
            {"customerId", side.customerId},
            {"variantId", side.variantId},
            {"details", side.details},
            {"digest", hex(side.digest)},
            {"hashValid", side.hashValid},
            {"secureBootStatus", side.secureBootStatus},
            {"keyRevocation", side.keyRevocation},
            {"svnRevocation", side.svnRevocation}};
}

SideInfo sideFrom(const json& value)
{
    SideInfo side;
    side.version = value.at("version");
    side.svn = value.at("svn");
    side.keyId = value.at("keyId");
    side.customerId = value.at("customerId");
    side.variantId = value.at("variantId");
    side.details = value.at("details");
    side.digest = unhexFixed<48>(value.at("digest"));
    side.hashValid = value.at("hashValid");
    side.secureBootStatus = value.at("secureBootStatus");
    side.keyRevocation = value.at("keyRevocation");
    side.svnRevocation = value.at("svnRevocation");
    return side;
}

json componentJson(const ComponentState& component)
{
    json entry = {
        {"id", component.id},
        {"minSvn", component.minSvn},
        {"sides",
         {sideJson(component.sides[0]), sideJson(component.sides[1])}}};
    entry["bootSide"] =
        component.bootSide ? json(*component.bootSide) : json(nullptr);
    return entry;
}

ComponentState componentFrom(const json& value)
{
    ComponentState component;
    component.id = value.at("id");
    component.minSvn = value.at("minSvn");
    component.sides = {sideFrom(value.at("sides").at(0)),
                       sideFrom(value.at("sides").at(1))};
    if (!value.at("bootSide").is_null())
    {
        component.bootSide = value.at("bootSide").get<uint8_t>();
    }
    return component;
}

json traceJson(const TraceRecord& record)
{
    return {{"t", record.timestamp},
            {"tag", std::string(record.tag.begin(), record.tag.end())},
            {"data1", record.data1},
            {"data2", record.data2},
            {"severity", record.severity}};
}

TraceRecord traceFrom(const json& value)
{
    TraceRecord record;
    record.timestamp = value.at("t");
    std::string tag = value.at("tag");
    tag.resize(record.tag.size(), ' ');
    std::copy(tag.begin(), tag.end(), record.tag.begin());
    record.data1 = value.at("data1");
    record.data2 = value.at("data2");
    record.severity = value.at("severity");
    return record;
}

json listJson(const auto& items, auto convert)
{
    json list = json::array();
    for (const auto& item : items)
    {
        list.push_back(convert(item));
    }
    return list;
}

json flashJson(const ErotState& state)
{
    return {{"activeSide", state.activeSide},
            {"pendingSide", state.pendingSide},
            {"updateOnReboot", state.updateOnReboot}};
}

json securityJson(const ErotState& state)
{
    return {{"deviceId", hex(state.deviceId)},
            {"identity", hex(state.identity)},
            {"certChain", hex(state.certChain)},
            {"token", state.token ? json(hex(*state.token)) : json(nullptr)},
            {"securitySettings", state.securitySettings},
            {"manageability", state.manageability}};
}

} // namespace

std::string hex(std::span<const uint8_t> bytes)
{
    std::string text;
    char digits[3];
    for (uint8_t byte : bytes)
    {
        std::snprintf(digits, sizeof(digits), "%02x", byte);
        text += digits;
    }
    return text;
}

json stateToJson(const ErotState& state)
{
    json keys = listJson(state.keys, [](const TrustedKey& key) {
        return json{{"index", key.index},
                    {"publicKey", hex(key.publicDer)},
                    {"revoked", key.revoked}};
    });
    json manifest = listJson(state.bkcManifest, [](const auto& entry) {
        return json{{"id", entry.first}, {"version", entry.second}};
    });
    return {{"flash", flashJson(state)},
            {"components", listJson(state.components, componentJson)},
            {"bkcManifest", manifest},
            {"persist", hex(state.persist)},
            {"autoArb", state.autoArb},
            {"keys", keys},
            {"traceLog", listJson(state.traceLog, traceJson)},
            {"traceOverflowed", state.traceOverflowed},
            {"traceCapacity", state.traceCapacity},
            {"health", state.health},
            {"resetReason", state.resetReason},
            {"security", securityJson(state)},
            {"record", state.record ? json(hex(*state.record)) : json(nullptr)},
            {"oneByte", state.oneByte},
            {"commandF1", state.commandF1Value},
            {"pages",
             {{"componentInfo", state.componentInfoPage},
              {"traceLog", state.traceLogPage}}}};
}

namespace
{

void flashFrom(const json& flash, ErotState& state)
{
    state.activeSide = flash.at("activeSide");
    state.pendingSide = flash.at("pendingSide");
    state.updateOnReboot = flash.at("updateOnReboot");
    if (state.activeSide > 1 || state.pendingSide > 1)
    {
        throw std::runtime_error("flash: a side is 0 or 1");
    }
}

void securityFrom(const json& security, ErotState& state)
{
    state.deviceId = unhexFixed<48>(security.at("deviceId"));
    state.identity = unhexFixed<48>(security.at("identity"));
    state.certChain = unhex(security.at("certChain"));
    if (!security.at("token").is_null())
    {
        state.token = unhex(security.at("token"));
    }
    state.securitySettings = security.at("securitySettings");
    state.manageability = security.at("manageability");
}

void listsFrom(const json& document, ErotState& state)
{
    for (const json& component : document.at("components"))
    {
        state.components.push_back(componentFrom(component));
    }
    for (const json& entry : document.at("bkcManifest"))
    {
        state.bkcManifest.emplace_back(entry.at("id"), entry.at("version"));
    }
    for (const json& key : document.at("keys"))
    {
        state.keys.push_back(
            {key.at("index"), unhex(key.at("publicKey")), key.at("revoked")});
    }
    for (const json& record : document.at("traceLog"))
    {
        state.traceLog.push_back(traceFrom(record));
    }
}

} // namespace

ErotState stateFromJson(const json& document)
{
    ErotState state;
    try
    {
        flashFrom(document.at("flash"), state);
        listsFrom(document, state);
        securityFrom(document.at("security"), state);
        state.persist = unhexFixed<16>(document.at("persist"));
        state.autoArb = document.at("autoArb");
        state.traceOverflowed = document.at("traceOverflowed");
        state.traceCapacity = document.at("traceCapacity");
        state.health = document.at("health");
        state.resetReason = document.at("resetReason");
        if (!document.at("record").is_null())
        {
            state.record = unhexFixed<48>(document.at("record"));
        }
        state.oneByte = document.at("oneByte");
        state.commandF1Value = document.at("commandF1");
        state.componentInfoPage = document.at("pages").at("componentInfo");
        state.traceLogPage = document.at("pages").at("traceLog");
    }
    catch (const json::exception& error)
    {
        throw std::runtime_error(std::string("eRoT state: ") + error.what());
    }
    return state;
}

namespace
{

// What the eRoT learnt of a component survives; what it measured of a side
// only while that side still holds the same image.
void adoptComponent(ComponentState& run, const ComponentState& saved)
{
    run.minSvn = saved.minSvn;
    run.bootSide = saved.bootSide;
    for (size_t i = 0; i < run.sides.size(); ++i)
    {
        SideInfo& side = run.sides[i];
        const SideInfo& old = saved.sides[i];
        // Revocations only move on: none, requested, completed.
        side.keyRevocation = std::max(side.keyRevocation, old.keyRevocation);
        side.svnRevocation = std::max(side.svnRevocation, old.svnRevocation);
        if (old.digest == side.digest)
        {
            side.hashValid = old.hashValid;
            side.secureBootStatus = old.secureBootStatus;
        }
    }
}

// The log goes on with what this power-on added, stamped after every
// saved entry, and so does the clock of its later entries.
void adoptTraceLog(ErotState& run, const ErotState& saved)
{
    run.traceClockBase =
        saved.traceLog.empty() ? 0 : saved.traceLog.back().timestamp + 1;
    std::deque<TraceRecord> added = std::move(run.traceLog);
    run.traceLog = saved.traceLog;
    run.traceOverflowed = saved.traceOverflowed;
    for (TraceRecord record : added)
    {
        record.timestamp += run.traceClockBase;
        run.appendTrace(record);
    }
}

} // namespace

void adoptSaved(ErotState& run, const ErotState& saved)
{
    run.activeSide = saved.activeSide;
    run.pendingSide = saved.pendingSide;
    run.updateOnReboot = saved.updateOnReboot;
    run.persist = saved.persist;
    run.autoArb = saved.autoArb;
    for (ComponentState& component : run.components)
    {
        if (const ComponentState* old = saved.component(component.id))
        {
            adoptComponent(component, *old);
        }
    }
    adoptTraceLog(run, saved);
    run.health = saved.health;
    run.resetReason = saved.resetReason;
    run.token = saved.token;
    run.securitySettings = saved.securitySettings;
    run.manageability = saved.manageability;
    run.record = saved.record;
    run.oneByte = saved.oneByte;
    run.commandF1Value = saved.commandF1Value;
}

ErotState loadState(const std::string& path)
{
    std::ifstream in(path);
    if (!in)
    {
        throw std::runtime_error(path + ": cannot be read");
    }
    try
    {
        return stateFromJson(json::parse(in));
    }
    catch (const std::exception& error)
    {
        throw std::runtime_error(path + ": " + error.what());
    }
}

// Written beside the file and renamed over it, so that a run that dies
// half-way leaves the previous state whole.
void saveState(const ErotState& state, const std::string& path)
{
    std::string temporary = path + ".tmp";
    {
        std::ofstream out(temporary, std::ios::trunc);
        out << stateToJson(state).dump(1) << "\n";
        out.close();
        if (!out)
        {
            std::string reason = std::strerror(errno);
            std::remove(temporary.c_str());
            throw std::runtime_error(path + ": cannot be written: " + reason);
        }
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0)
    {
        std::string reason = std::strerror(errno);
        std::remove(temporary.c_str());
        throw std::runtime_error(path + ": cannot be written: " + reason);
    }
}

} // namespace ubbsim::erot
