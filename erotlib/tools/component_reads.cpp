// Firmware components as the eRoT knows them, and the known-good manifest.
#include "read_commands.hpp"
#include "text_format.hpp"
#include "value_parsers.hpp"

#include <erotlib/erot.hpp>

namespace erotctl
{

namespace
{

std::string revocationName(uint8_t state)
{
    switch (state)
    {
        case 0:
            return "not requested";
        case 1:
            return "requested";
        case 2:
            return "completed";
        default:
            return "unknown (" + std::to_string(state) + ")";
    }
}

// The fields every format carries. Packed fields are copied out first.
nlohmann::ordered_json identityFields(const erot::ComponentInfo& entry)
{
    uint16_t id = entry.componentId;
    uint16_t customer = entry.customerId;
    uint16_t variant = entry.variantId;
    uint32_t svn = entry.svn;
    return {
        {"componentId", hexNumber(id, 4)},
        {"component", componentName(id)},
        {"version", hexNumber(entry.version, 8)},
        {"svn", svn},
        {"keyId", hexNumber(entry.keyId, 8)},
        {"customerId", hexNumber(customer, 4)},
        {"variantId", hexNumber(variant, 4)},
        {"details", printable(entry.details, sizeof(entry.details))},
    };
}

// Format 3 adds the state bytes, format 4 the revocation states; a shorter
// entry has zeros there that mean nothing, so they are left out.
nlohmann::ordered_json entryFields(const erot::ComponentInfo& entry,
                                   unsigned version)
{
    nlohmann::ordered_json fields = identityFields(entry);
    bool hashValid = version >= 3 && entry.hashValid != 0;
    fields["digest"] = hashValid ? nlohmann::ordered_json(hexBytes(
                                       entry.digest, sizeof(entry.digest)))
                                 : nlohmann::ordered_json(nullptr);
    if (version >= 3)
    {
        fields["active"] = entry.active != 0;
        fields["secureBootPassed"] = entry.secureBootStatus != 0;
        fields["bkcGood"] = entry.bkcGood != 0;
    }
    if (version >= 4)
    {
        fields["keyRevocationStatus"] = entry.keyRevocationStatus;
        fields["svnRevocationStatus"] = entry.svnRevocationStatus;
    }
    return fields;
}

std::string entryText(const nlohmann::ordered_json& fields)
{
    auto text = [&](const char* key) { return fields[key].get<std::string>(); };
    std::string out = text("componentId") + " " + text("component") +
                      ": version " + text("version") + ", SVN " +
                      std::to_string(fields["svn"].get<uint32_t>()) + ", key " +
                      text("keyId") + ", customer " + text("customerId") +
                      ", variant " + text("variantId") + "\n";
    if (fields.contains("active"))
    {
        out += "  active " + yesNo(fields["active"].get<bool>()) +
               ", secure boot " +
               (fields["secureBootPassed"].get<bool>() ? "passed" : "failed") +
               ", BKC good " + yesNo(fields["bkcGood"].get<bool>()) + "\n";
    }
    if (fields.contains("keyRevocationStatus"))
    {
        out += "  key revocation " +
               revocationName(fields["keyRevocationStatus"].get<uint8_t>()) +
               ", SVN revocation " +
               revocationName(fields["svnRevocationStatus"].get<uint8_t>()) +
               "\n";
    }
    if (!fields["digest"].is_null())
    {
        out += "  digest " + text("digest") + "\n";
    }
    return out + "  details \"" + text("details") + "\"\n";
}

} // namespace

Result readComponentInfo(const Invocation& call)
{
    auto found = call.options.find("--version");
    std::optional<uint32_t> version = 4;
    if (found != call.options.end())
    {
        version = parseNumber(found->second, 4);
    }
    if (!version || *version < 2)
    {
        return usageError("--version takes 2, 3 or 4");
    }
    uint32_t count = 0;
    erot::ComponentInfo* raw = nullptr;
    uint8_t status = 0;
    int r = erot::ErotGetComponentInfo(static_cast<uint8_t>(*version), &count,
                                       &raw, &status);
    erot::Owned<erot::ComponentInfo> entries(raw);
    if (failed(r, status))
    {
        return failure(call.command, r, status);
    }
    std::string text = std::to_string(count) + " components (format " +
                       std::to_string(*version) + ")\n";
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (uint32_t i = 0; i < count; ++i)
    {
        list.push_back(entryFields(entries.get()[i], *version));
        text += entryText(list.back());
    }
    return succeeded(
        call.command, text,
        {{"format", *version}, {"count", count}, {"components", list}});
}

Result readBkcManifest(const Invocation& call)
{
    uint32_t count = 0;
    erot::BkcManifestEntry* raw = nullptr;
    uint8_t status = 0;
    int r = erot::ErotGetBKCManifest(&count, &raw, &status);
    erot::Owned<erot::BkcManifestEntry> entries(raw);
    if (failed(r, status))
    {
        return failure(call.command, r, status);
    }
    std::string text = std::to_string(count) + " manifest entries\n";
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (uint32_t i = 0; i < count; ++i)
    {
        uint16_t id = entries.get()[i].componentId;
        std::string version = hexNumber(entries.get()[i].version, 8);
        text += hexNumber(id, 4) + " " + componentName(id) + " version " +
                version + "\n";
        list.push_back({{"componentId", hexNumber(id, 4)},
                        {"component", componentName(id)},
                        {"version", version}});
    }
    return succeeded(call.command, text, {{"count", count}, {"entries", list}});
}

} // namespace erotctl
