#pragma once

#include "scenario/scenario.hpp"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

// Typed reads of a scenario's JSON whose errors name the field's location
// ("oams.slots.3.ibcAddress: ..."). Every failure throws ScenarioError.
namespace ubbsim::reader
{

using nlohmann::json;

constexpr int oamCount = 8;

std::string child(const std::string& path, std::string_view key);
std::string element(const std::string& path, size_t index);
[[noreturn]] void fail(const std::string& path, const std::string& message);
std::string inQuotes(std::string_view text);
std::string number(double value);

// "unknown rail "X"", with the closest known name when it looks like a
// typo, or all of them when there are few.
std::string unknownText(std::string_view what, std::string_view name,
                        const std::vector<std::string_view>& known);
std::vector<std::string_view> views(const std::vector<std::string>& names);

void expectObject(const json& value, const std::string& path);

// The members of an object, with every key checked against `allowed`.
class Fields
{
  public:
    Fields(const json& value, std::string path,
           const std::vector<std::string_view>& allowed);

    // nullptr when the key is absent.
    const json* find(std::string_view key) const;
    const json& require(std::string_view key,
                        const std::string& reason = "required") const;
    // The location of a member.
    std::string at(std::string_view key) const;

  private:
    const json& value;
    std::string path;
};

Seconds readSeconds(const json& value, const std::string& path);
bool readBool(const json& value, const std::string& path);
std::string readString(const json& value, const std::string& path);
int64_t readInteger(const json& value, const std::string& path, int64_t min,
                    int64_t max);
// Addresses and register values: a number or a "0x.." string.
int64_t readHexInteger(const json& value, const std::string& path, int64_t min,
                       int64_t max);
std::string readChoice(const json& value, const std::string& path,
                       const std::vector<std::string_view>& choices,
                       std::string_view what);
int readOamIndex(const json& value, const std::string& path);
const json& readArray(const json& value, const std::string& path);
void checkWithinRun(Seconds at, Seconds end, const std::string& path);
// How many times a fault strikes: -1 (always) or 1..1000.
int readCount(const json& value, const std::string& path);

// The members that a fault of one kind must and may have.
struct FaultRule
{
    std::string_view kind;
    std::vector<std::string_view> required;
    std::vector<std::string_view> optional;
};

// The rule of a fault's "kind", refusing a fault without one or of a kind
// that no rule has.
const FaultRule& readFaultRule(const json& fault, const std::string& path,
                               const std::vector<FaultRule>& rules);
std::vector<std::string> kindNames(const std::vector<FaultRule>& rules);

} // namespace ubbsim::reader
