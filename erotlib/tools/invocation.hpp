#pragma once

#include <map>
#include <string>
#include <variant>
#include <vector>

namespace erotctl
{

// The command line split into its parts. Options may stand anywhere after
// the program name; the first other word names the subcommand and the rest
// are its operands.
struct Invocation
{
    std::string command;
    std::vector<std::string> operands;
    // Options of the subcommand, by name ("--version"); flags map to "".
    std::map<std::string, std::string> options;
    bool json = false;
    bool write = false;
    bool help = false;

    bool has(const std::string& option) const
    {
        return options.contains(option);
    }
};

// The invocation, or the message of a usage error: an unknown option or
// one that lacks its value.
std::variant<Invocation, std::string> parseInvocation(
    const std::vector<std::string>& words);

} // namespace erotctl
