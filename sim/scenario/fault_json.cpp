#include "scenario/fault_json.hpp"

#include "scenario/scenario_json.hpp"

#include <algorithm>

namespace ubbsim
{

using namespace reader;

namespace
{

const std::vector<FaultRule>& faultRules()
{
    static const std::vector<FaultRule> rules = {
        {"railNoPowerGood", {"rail"}, {}},
        {"railDrop", {"rail", "at"}, {"until"}},
        // Without an address the whole bus is silent.
        {"nack", {"bus"}, {"address", "at", "until"}},
        {"gpioBusy", {"line"}, {"at", "until"}},
        {"ctf", {"oam", "at"}, {"until"}},
        {"moduleGoodLost", {"oam", "at"}, {"until"}},
        {"hotswapNoGood", {"count"}, {}},
        {"fpgaTimeout", {"count"}, {}},
        {"efuse", {"oam"}, {"value"}},
        {"emcMisconfig", {"value"}, {}},
        {"sgpio", {"fpga", "value"}, {"at"}},
    };
    return rules;
}

const std::vector<std::string_view> faultFields = {
    "kind",    "at",   "until", "rail",  "oam",  "bus",
    "address", "line", "fpga",  "count", "value"};

const FaultRule& ruleFor(const json& fault, const std::string& path)
{
    return readFaultRule(fault, path, faultRules());
}

// Keys that belong to faults in general but not to this kind are named as
// such, since they are almost always a mix-up of two kinds.
void checkFaultKeys(const json& fault, const std::string& path,
                    const FaultRule& rule)
{
    Fields all(fault, path, faultFields);
    for (const auto& [key, value] : fault.items())
    {
        bool used =
            key == "kind" ||
            std::count(rule.required.begin(), rule.required.end(), key) != 0 ||
            std::count(rule.optional.begin(), rule.optional.end(), key) != 0;
        if (!used)
        {
            fail(child(path, key),
                 "not used by fault kind " + inQuotes(rule.kind));
        }
    }
    for (std::string_view key : rule.required)
    {
        all.require(key, "required by fault kind " + inQuotes(rule.kind));
    }
}

void readFaultField(const json& value, const std::string& path,
                    std::string_view key, Fault& fault)
{
    if (key == "at")
    {
        fault.at = readSeconds(value, path);
    }
    else if (key == "until")
    {
        fault.until = readSeconds(value, path);
    }
    else if (key == "rail")
    {
        fault.rail = readChoice(value, path, views(railNames()), "rail");
    }
    else if (key == "line")
    {
        fault.line =
            readChoice(value, path, views(gpioLineNames()), "GPIO line");
    }
    else if (key == "fpga")
    {
        fault.fpga = readChoice(value, path, {"ubb", "smc"}, "FPGA");
    }
    else if (key == "oam")
    {
        fault.oam = readOamIndex(value, path);
    }
    else if (key == "bus")
    {
        fault.bus = static_cast<int>(readInteger(value, path, 0, 15));
    }
    else if (key == "address")
    {
        fault.address = static_cast<int>(readHexInteger(value, path, 0, 0x7F));
    }
    else if (key == "count")
    {
        fault.count = readCount(value, path);
    }
}

// A register value that is meant as a fault; 0 would read as healthy.
int readFaultValue(const json& value, const std::string& path,
                   std::string_view kind)
{
    int64_t min = kind == "emcMisconfig" ? 0x00 : 0x01;
    return static_cast<int>(readHexInteger(value, path, min, 0xFF));
}

Fault parseFault(const json& value, const std::string& path, Seconds end)
{
    const FaultRule& rule = ruleFor(value, path);
    checkFaultKeys(value, path, rule);
    Fault fault;
    fault.kind = std::string(rule.kind);
    if (rule.kind == "efuse")
    {
        fault.value = 0x01;
    }
    for (const auto& [key, member] : value.items())
    {
        std::string where = child(path, key);
        if (key == "value")
        {
            fault.value = readFaultValue(member, where, rule.kind);
        }
        else
        {
            readFaultField(member, where, key, fault);
        }
    }
    if (fault.until && *fault.until <= fault.at)
    {
        fail(child(path, "until"),
             "must be after \"at\" (" + number(fault.at) + " s)");
    }
    checkWithinRun(fault.at, end, child(path, "at"));
    return fault;
}

} // namespace

std::vector<Fault> parseFaults(const json& value, const std::string& path,
                               Seconds end)
{
    std::vector<Fault> faults;
    for (size_t i = 0; i < readArray(value, path).size(); ++i)
    {
        faults.push_back(parseFault(value[i], element(path, i), end));
    }
    return faults;
}

const std::vector<std::string>& faultKinds()
{
    static const std::vector<std::string> kinds = kindNames(faultRules());
    return kinds;
}

} // namespace ubbsim
