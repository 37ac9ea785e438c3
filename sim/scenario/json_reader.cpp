#include "scenario/json_reader.hpp"

#include "scenario/scenario_json.hpp"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <limits>
#include <sstream>

namespace ubbsim::reader
{

std::string child(const std::string& path, std::string_view key)
{
    return path.empty() ? std::string(key) : path + "." + std::string(key);
}

std::string element(const std::string& path, size_t index)
{
    return path + "[" + std::to_string(index) + "]";
}

[[noreturn]] void fail(const std::string& path, const std::string& message)
{
    throw ScenarioError(path.empty() ? message : path + ": " + message);
}

std::string inQuotes(std::string_view text)
{
    return "\"" + std::string(text) + "\"";
}

std::string number(double value)
{
    std::ostringstream out;
    out << value;
    return out.str();
}

namespace
{

size_t editDistance(std::string_view a, std::string_view b)
{
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j)
    {
        row[j] = j;
    }
    for (size_t i = 1; i <= a.size(); ++i)
    {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j)
        {
            size_t above = row[j];
            size_t substitute = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            row[j] = std::min({above + 1, row[j - 1] + 1, substitute});
            diagonal = above;
        }
    }
    return row[b.size()];
}

} // namespace

namespace
{

std::string choiceList(const std::vector<std::string_view>& choices)
{
    std::string list;
    for (std::string_view choice : choices)
    {
        list += (list.empty() ? "" : ", ") + inQuotes(choice);
    }
    return list;
}

} // namespace

std::string unknownText(std::string_view what, std::string_view name,
                        const std::vector<std::string_view>& known)
{
    std::string text = "unknown " + std::string(what) + " " + inQuotes(name);
    std::string_view closest;
    size_t best = 3;
    for (std::string_view candidate : known)
    {
        size_t distance = editDistance(name, candidate);
        if (distance < best)
        {
            best = distance;
            closest = candidate;
        }
    }
    if (!closest.empty())
    {
        return text + " (did you mean " + inQuotes(closest) + "?)";
    }
    if (known.size() <= 6)
    {
        return text + " (one of " + choiceList(known) + ")";
    }
    return text;
}

std::vector<std::string_view> views(const std::vector<std::string>& names)
{
    return {names.begin(), names.end()};
}

void expectObject(const json& value, const std::string& path)
{
    if (!value.is_object())
    {
        fail(path, "must be an object");
    }
}

Fields::Fields(const json& value, std::string path,
               const std::vector<std::string_view>& allowed) :
    value(value),
    path(std::move(path))
{
    expectObject(value, this->path);
    for (const auto& [key, member] : value.items())
    {
        if (std::find(allowed.begin(), allowed.end(), key) == allowed.end())
        {
            fail(this->path, unknownText("field", key, allowed));
        }
    }
}

const json* Fields::find(std::string_view key) const
{
    auto found = value.find(std::string(key));
    return found == value.end() ? nullptr : &*found;
}

const json& Fields::require(std::string_view key,
                            const std::string& reason) const
{
    const json* member = find(key);
    if (member == nullptr)
    {
        fail(at(key), reason);
    }
    return *member;
}

std::string Fields::at(std::string_view key) const
{
    return child(path, key);
}

Seconds readSeconds(const json& value, const std::string& path)
{
    if (!value.is_number() || !std::isfinite(value.get<double>()) ||
        value.get<double>() < 0)
    {
        fail(path, "must be a number of seconds >= 0");
    }
    return value.get<double>();
}

bool readBool(const json& value, const std::string& path)
{
    if (!value.is_boolean())
    {
        fail(path, "must be true or false");
    }
    return value.get<bool>();
}

std::string readString(const json& value, const std::string& path)
{
    if (!value.is_string())
    {
        fail(path, "must be a string");
    }
    return value.get<std::string>();
}

int64_t readInteger(const json& value, const std::string& path, int64_t min,
                    int64_t max)
{
    bool integral =
        value.is_number_integer() &&
        (!value.is_number_unsigned() ||
         value.get<uint64_t>() <=
             static_cast<uint64_t>(std::numeric_limits<int64_t>::max()));
    if (!integral || value.get<int64_t>() < min || value.get<int64_t>() > max)
    {
        fail(path, "must be an integer " + std::to_string(min) + ".." +
                       std::to_string(max));
    }
    return value.get<int64_t>();
}

namespace
{

std::string hex(int64_t value)
{
    std::ostringstream out;
    out << "0x" << std::hex << std::setw(2) << std::setfill('0') << value;
    return out.str();
}

} // namespace

int64_t readHexInteger(const json& value, const std::string& path, int64_t min,
                       int64_t max)
{
    std::string range = " in " + hex(min) + ".." + hex(max);
    if (value.is_string())
    {
        const std::string& text = value.get_ref<const std::string&>();
        bool wellFormed = text.size() > 2 && text.size() <= 10 &&
                          (text.starts_with("0x") || text.starts_with("0X")) &&
                          text.find_first_not_of("0123456789abcdefABCDEF", 2) ==
                              std::string::npos;
        int64_t parsed =
            wellFormed ? std::stoll(text.substr(2), nullptr, 16) : -1;
        if (!wellFormed || parsed < min || parsed > max)
        {
            fail(path, "must be a number or a \"0x..\" string" + range);
        }
        return parsed;
    }
    if (!value.is_number_integer() || value.get<int64_t>() < min ||
        value.get<int64_t>() > max)
    {
        fail(path, "must be a number or a \"0x..\" string" + range);
    }
    return value.get<int64_t>();
}

std::string readChoice(const json& value, const std::string& path,
                       const std::vector<std::string_view>& choices,
                       std::string_view what)
{
    if (!value.is_string())
    {
        fail(path, "must be one of " + choiceList(choices));
    }
    const std::string& text = value.get_ref<const std::string&>();
    if (std::find(choices.begin(), choices.end(), text) == choices.end())
    {
        fail(path, unknownText(what, text, choices));
    }
    return text;
}

int readOamIndex(const json& value, const std::string& path)
{
    if (!value.is_number_integer())
    {
        fail(path, "must be an OAM index 0..7");
    }
    int64_t index = value.get<int64_t>();
    if (index < 0 || index >= oamCount)
    {
        fail(path, "OAM index " + std::to_string(index) + " out of range 0..7");
    }
    return static_cast<int>(index);
}

const json& readArray(const json& value, const std::string& path)
{
    if (!value.is_array())
    {
        fail(path, "must be a list");
    }
    return value;
}

void checkWithinRun(Seconds at, Seconds end, const std::string& path)
{
    if (at > end)
    {
        fail(path, number(at) + " s is after the end of the run (" +
                       number(end) + " s)");
    }
}

int readCount(const json& value, const std::string& path)
{
    if (!value.is_number_integer() ||
        (value.get<int64_t>() != -1 && value.get<int64_t>() < 1) ||
        value.get<int64_t>() > 1000)
    {
        fail(path, "must be -1 (always) or a count 1..1000");
    }
    return static_cast<int>(value.get<int64_t>());
}

const FaultRule& readFaultRule(const json& fault, const std::string& path,
                               const std::vector<FaultRule>& rules)
{
    expectObject(fault, path);
    std::string kindPath = child(path, "kind");
    auto kind = fault.find("kind");
    if (kind == fault.end())
    {
        fail(kindPath, "required");
    }
    std::vector<std::string> kinds = kindNames(rules);
    std::string name = readChoice(*kind, kindPath, views(kinds), "fault kind");
    auto rule =
        std::find_if(rules.begin(), rules.end(),
                     [&](const FaultRule& r) { return r.kind == name; });
    return *rule;
}

std::vector<std::string> kindNames(const std::vector<FaultRule>& rules)
{
    std::vector<std::string> names;
    for (const FaultRule& rule : rules)
    {
        names.emplace_back(rule.kind);
    }
    return names;
}

} // namespace ubbsim::reader
