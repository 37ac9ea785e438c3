#include "scenario/erot_json.hpp"

#include "erot/fw_components.hpp"
#include "erot/opcodes.hpp"
#include "scenario/scenario_json.hpp"

#include <algorithm>

namespace ubbsim
{

using namespace reader;

namespace
{

const std::vector<FaultRule>& erotFaultRules()
{
    static const std::vector<FaultRule> rules = {
        {"deadLink", {}, {}},
        {"lostReplies", {"count"}, {"opcode"}},
        {"shortReply", {}, {"opcode"}},
        {"oversizedReply", {}, {"opcode"}},
        {"wrongLength", {}, {"opcode"}},
        {"formatVersion", {"opcode", "value"}, {}},
        {"status", {"opcode", "value"}, {"component"}},
        {"secureBootFailed", {"component"}, {"side"}},
        {"missingBpr", {"component"}, {}},
    };
    return rules;
}

const std::vector<std::string_view> everyKind = {"kind", "at", "until",
                                                 "count"};

const FaultRule& ruleFor(const json& fault, const std::string& path)
{
    return readFaultRule(fault, path, erotFaultRules());
}

void checkKeys(const json& fault, const std::string& path,
               const FaultRule& rule)
{
    std::vector<std::string_view> allowed = everyKind;
    allowed.insert(allowed.end(), rule.required.begin(), rule.required.end());
    allowed.insert(allowed.end(), rule.optional.begin(), rule.optional.end());
    Fields fields(fault, path, allowed);
    for (std::string_view key : rule.required)
    {
        fields.require(key, "required by fault kind " + inQuotes(rule.kind));
    }
}

int readSide(const json& value, const std::string& path)
{
    return readChoice(value, path, {"A", "B"}, "side") == "A" ? 0 : 1;
}

std::string readComponent(const json& value, const std::string& path)
{
    return readChoice(value, path, views(erotComponentNames()), "component");
}

int readOpcode(const json& value, const std::string& path)
{
    int opcode = static_cast<int>(readHexInteger(value, path, 0, 0xFF));
    if (!erot::op::known(opcode))
    {
        fail(path, "unknown opcode " + value.dump());
    }
    return opcode;
}

void readFaultField(const json& value, const std::string& path,
                    const std::string& key, ErotFault& fault)
{
    if (key == "at")
        fault.at = readSeconds(value, path);
    else if (key == "until")
        fault.until = readSeconds(value, path);
    else if (key == "count")
        fault.count = readCount(value, path);
    else if (key == "opcode")
        fault.opcode = readOpcode(value, path);
    else if (key == "value")
        fault.value = static_cast<int>(readHexInteger(value, path, 0, 0xFF));
    else if (key == "component")
        fault.component = readComponent(value, path);
    else if (key == "side")
        fault.side = readSide(value, path);
}

// Field combinations that parse but could never show.
void checkFaultSense(const ErotFault& fault, const std::string& path)
{
    if (fault.kind == "status" && fault.value == 0)
    {
        fail(child(path, "value"), "must be a refusal 0x01..0xFF");
    }
    if (fault.kind == "status" && !fault.component.empty() &&
        fault.opcode != erot::op::imageVerify)
    {
        fail(child(path, "component"), "only with opcode 0x02");
    }
    bool versioned = std::any_of(
        erot::op::versioned.begin(), erot::op::versioned.end(),
        [&](const auto& entry) { return entry.opcode == fault.opcode; });
    if (fault.kind == "formatVersion" && !versioned)
    {
        fail(child(path, "opcode"), "has no format version in its reply");
    }
    if (fault.until && *fault.until <= fault.at)
    {
        fail(child(path, "until"),
             "must be after \"at\" (" + number(fault.at) + " s)");
    }
}

ErotFault parseFault(const json& value, const std::string& path, Seconds end)
{
    const FaultRule& rule = ruleFor(value, path);
    checkKeys(value, path, rule);
    ErotFault fault;
    fault.kind = std::string(rule.kind);
    for (const auto& [key, member] : value.items())
    {
        readFaultField(member, child(path, key), key, fault);
    }
    checkFaultSense(fault, path);
    checkWithinRun(fault.at, end, child(path, "at"));
    return fault;
}

uint8_t readRevocation(const json& value, const std::string& path)
{
    static const std::vector<std::string_view> states = {"none", "requested",
                                                         "completed"};
    std::string name = readChoice(value, path, states, "revocation state");
    return static_cast<uint8_t>(std::find(states.begin(), states.end(), name) -
                                states.begin());
}

ErotComponentSetting parseComponent(const json& value, const std::string& path)
{
    Fields fields(value, path,
                  {"version", "svn", "minSvn", "manifest", "bootSide",
                   "keyRevocation", "svnRevocation"});
    ErotComponentSetting setting;
    auto word = [&](std::string_view key) -> std::optional<uint32_t> {
        if (const json* member = fields.find(key))
        {
            return static_cast<uint32_t>(
                readHexInteger(*member, fields.at(key), 0, 0xFFFFFFFF));
        }
        return std::nullopt;
    };
    setting.version = word("version");
    setting.svn = word("svn");
    setting.minSvn = word("minSvn");
    setting.manifest = word("manifest");
    if (const json* side = fields.find("bootSide"))
    {
        setting.bootSide = readSide(*side, fields.at("bootSide"));
    }
    for (auto [key, target] :
         {std::pair{"keyRevocation", &setting.keyRevocation},
          std::pair{"svnRevocation", &setting.svnRevocation}})
    {
        if (const json* member = fields.find(key))
        {
            *target = readRevocation(*member, fields.at(key));
        }
    }
    return setting;
}

ErotImageMark::Kind readMark(const json& value, const std::string& path)
{
    static const std::vector<std::pair<std::string_view, ErotImageMark::Kind>>
        marks = {{"tampered", ErotImageMark::Kind::tampered},
                 {"revokedKey", ErotImageMark::Kind::revokedKey},
                 {"unknownKey", ErotImageMark::Kind::unknownKey},
                 {"lowSvn", ErotImageMark::Kind::lowSvn},
                 {"missing", ErotImageMark::Kind::missing}};
    std::vector<std::string_view> names;
    for (const auto& entry : marks)
    {
        names.push_back(entry.first);
    }
    std::string name = readChoice(value, path, names, "image mark");
    return std::find_if(marks.begin(), marks.end(),
                        [&](const auto& entry) { return entry.first == name; })
        ->second;
}

// Whether the SMC's storage holds a signed pair for the component.
void checkSignedImage(const std::string& name, bool dual,
                      const std::string& path)
{
    auto component = erot::componentByName(name);
    if (!component->hasAhdr)
    {
        fail(path, inQuotes(name) + " has no signed image on the SMC");
    }
    bool pair =
        component->id == erot::retimer1Id || component->id == erot::retimer2Id;
    if (component->id == erot::retimerId && dual)
    {
        fail(path, "\"Retimer\" has no image with \"retimers\": \"dual\"");
    }
    if (pair && !dual)
    {
        fail(path, inQuotes(name) + " needs \"retimers\": \"dual\"");
    }
}

ErotImageMark parseImage(const json& value, const std::string& path, bool dual)
{
    Fields fields(value, path, {"component", "side", "mark"});
    ErotImageMark mark;
    mark.component =
        readComponent(fields.require("component"), fields.at("component"));
    checkSignedImage(mark.component, dual, fields.at("component"));
    if (const json* side = fields.find("side"))
    {
        mark.side = readSide(*side, fields.at("side"));
    }
    mark.kind = readMark(fields.require("mark"), fields.at("mark"));
    return mark;
}

ErotTraceSetting parseTrace(const json& value, const std::string& path)
{
    Fields fields(value, path, {"tag", "data1", "data2", "severity"});
    ErotTraceSetting entry;
    entry.tag = readString(fields.require("tag"), fields.at("tag"));
    if (entry.tag.size() != 4)
    {
        fail(fields.at("tag"), "must be four characters");
    }
    for (auto [key, target] :
         {std::pair{"data1", &entry.data1}, std::pair{"data2", &entry.data2}})
    {
        if (const json* member = fields.find(key))
        {
            *target = static_cast<uint32_t>(
                readHexInteger(*member, fields.at(key), 0, 0xFFFFFFFF));
        }
    }
    if (const json* severity = fields.find("severity"))
    {
        entry.severity = static_cast<int>(
            readInteger(*severity, fields.at("severity"), 0, 255));
    }
    return entry;
}

template <typename Item, typename Parse>
std::vector<Item> parseList(const Fields& fields, std::string_view key,
                            Parse parse)
{
    std::vector<Item> items;
    if (const json* list = fields.find(key))
    {
        std::string path = fields.at(key);
        for (size_t i = 0; i < readArray(*list, path).size(); ++i)
        {
            items.push_back(parse((*list)[i], element(path, i)));
        }
    }
    return items;
}

void parseFlags(const Fields& fields, ErotScenario& erot)
{
    if (const json* retimers = fields.find("retimers"))
    {
        erot.dualRetimers =
            readChoice(*retimers, fields.at("retimers"), {"single", "dual"},
                       "retimer layout") == "dual";
    }
    if (const json* side = fields.find("activeSide"))
    {
        erot.activeSide = readSide(*side, fields.at("activeSide"));
    }
    if (const json* flag = fields.find("updateOnReboot"))
    {
        erot.updateOnReboot = readBool(*flag, fields.at("updateOnReboot"));
    }
    if (const json* flag = fields.find("autoArb"))
    {
        erot.autoArb = readBool(*flag, fields.at("autoArb"));
    }
    if (const json* staged = fields.find("stagedUbbFpga"))
    {
        const std::string where = fields.at("stagedUbbFpga");
        const json& sides = readArray(*staged, where);
        for (size_t i = 0; i < sides.size(); ++i)
        {
            erot.stagedUbbFpga.push_back(
                readSide(sides[i], where + "[" + std::to_string(i) + "]"));
        }
    }
    if (const json* health = fields.find("health"))
    {
        erot.health = static_cast<uint8_t>(
            readHexInteger(*health, fields.at("health"), 0, 0xFF));
    }
}

void parsePersist(const json& value, const std::string& path,
                  ErotScenario& erot)
{
    Fields fields(value, path, {"secureBootFinished", "smcFpgaRecoveryTried"});
    if (const json* flag = fields.find("secureBootFinished"))
    {
        erot.secureBootFinished =
            readBool(*flag, fields.at("secureBootFinished"));
    }
    if (const json* flag = fields.find("smcFpgaRecoveryTried"))
    {
        erot.smcFpgaRecoveryTried =
            readBool(*flag, fields.at("smcFpgaRecoveryTried"));
    }
}

// An SVN below a committed minimum of 0 can't be signed.
void checkLowSvn(const ErotScenario& erot, const std::string& path)
{
    for (size_t i = 0; i < erot.images.size(); ++i)
    {
        const ErotImageMark& mark = erot.images[i];
        auto setting = erot.components.find(mark.component);
        bool noMinimum = setting != erot.components.end() &&
                         setting->second.minSvn.value_or(1) == 0;
        if (mark.kind == ErotImageMark::Kind::lowSvn && noMinimum)
        {
            fail(element(path, i) + ".mark",
                 "\"lowSvn\" needs a \"minSvn\" of 1 or more");
        }
    }
}

} // namespace

ErotScenario parseErot(const json& value, const std::string& path, Seconds end)
{
    Fields fields(value, path,
                  {"retimers", "activeSide", "updateOnReboot", "autoArb",
                   "health", "persist", "components", "images", "faults",
                   "traceLog", "stagedUbbFpga"});
    ErotScenario erot;
    parseFlags(fields, erot);
    if (const json* persist = fields.find("persist"))
    {
        parsePersist(*persist, fields.at("persist"), erot);
    }
    if (const json* components = fields.find("components"))
    {
        std::string where = fields.at("components");
        expectObject(*components, where);
        for (const auto& [name, setting] : components->items())
        {
            std::string at = child(where, name);
            if (!erot::componentByName(name))
            {
                fail(where, unknownText("component", name,
                                        views(erotComponentNames())));
            }
            erot.components[name] = parseComponent(setting, at);
        }
    }
    erot.images = parseList<ErotImageMark>(
        fields, "images", [&](const json& item, const std::string& at) {
            return parseImage(item, at, erot.dualRetimers);
        });
    erot.faults = parseList<ErotFault>(
        fields, "faults", [end](const json& item, const std::string& at) {
            return parseFault(item, at, end);
        });
    erot.traceLog = parseList<ErotTraceSetting>(fields, "traceLog", parseTrace);
    checkLowSvn(erot, fields.at("images"));
    return erot;
}

const std::vector<std::string>& erotFaultKinds()
{
    static const std::vector<std::string> kinds = kindNames(erotFaultRules());
    return kinds;
}

const std::vector<std::string>& erotComponentNames()
{
    static const std::vector<std::string> names = [] {
        std::vector<std::string> list;
        for (const auto& component : erot::fwComponents)
        {
            list.emplace_back(component.name);
        }
        return list;
    }();
    return names;
}

} // namespace ubbsim
