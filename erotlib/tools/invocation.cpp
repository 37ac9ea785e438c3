#include "invocation.hpp"

#include <array>
#include <string_view>

namespace erotctl
{

namespace
{

constexpr std::array<std::string_view, 2> flagOptions = {"--persist",
                                                         "--basic"};
constexpr std::array<std::string_view, 2> valueOptions = {"--version", "--out"};

template <typename List>
bool listed(const List& list, std::string_view word)
{
    for (std::string_view entry : list)
    {
        if (entry == word)
        {
            return true;
        }
    }
    return false;
}

// Takes the global switches; false when `word` is none of them.
bool globalSwitch(Invocation& call, std::string_view word)
{
    if (word == "--json")
    {
        call.json = true;
    }
    else if (word == "--write")
    {
        call.write = true;
    }
    else if (word == "--help" || word == "-h")
    {
        call.help = true;
    }
    else
    {
        return false;
    }
    return true;
}

} // namespace

std::variant<Invocation, std::string> parseInvocation(
    const std::vector<std::string>& words)
{
    Invocation call;
    for (size_t i = 0; i < words.size(); ++i)
    {
        const std::string& word = words[i];
        if (globalSwitch(call, word))
        {
            continue;
        }
        std::string name = word.substr(0, word.find('='));
        if (listed(flagOptions, word))
        {
            call.options[word] = "";
        }
        else if (listed(valueOptions, name) && name.size() < word.size())
        {
            call.options[name] = word.substr(name.size() + 1);
        }
        else if (listed(valueOptions, word))
        {
            if (i + 1 == words.size())
            {
                return "option " + word + " needs a value";
            }
            call.options[word] = words[++i];
        }
        else if (word.size() > 1 && word[0] == '-')
        {
            return "unknown option " + word;
        }
        else if (call.command.empty())
        {
            call.command = word;
        }
        else
        {
            call.operands.push_back(word);
        }
    }
    return call;
}

} // namespace erotctl
