#include "common/vcd_reader.hpp"

#include <sstream>

namespace ubbsim
{

namespace
{

struct Reader
{
    Vcd vcd;
    std::map<std::string, std::string> names; // id -> name
    int64_t time = -1;
    bool defined = false;

    void problem(const std::string& what)
    {
        vcd.problems.push_back(what);
    }

    void declare(std::istringstream& in)
    {
        std::string type, id, name;
        int width = 0;
        in >> type >> width >> id >> name;
        if (type != "wire" || width < 1 || names.contains(id))
        {
            problem("bad $var " + name);
        }
        names[id] = name;
        vcd.widths[name] = width;
        std::string rest;
        while (in >> rest && rest != "$end")
        {}
    }

    void change(const std::string& name, const std::string& value)
    {
        if (time < 0)
        {
            problem("change before any time");
        }
        auto& trace = vcd.changes[name];
        if (!trace.empty() && trace.back().at == time)
        {
            problem(name + " changes twice at one time");
        }
        trace.push_back({time, value});
    }

    void value(const std::string& token, std::istringstream& in)
    {
        if (token[0] == 'b')
        {
            std::string id;
            in >> id;
            if (!names.contains(id) ||
                static_cast<int>(token.size() - 1) != vcd.widths[names[id]])
            {
                problem("bad vector " + token + " " + id);
                return;
            }
            change(names[id], token.substr(1));
            return;
        }
        std::string id = token.substr(1);
        if ((token[0] != '0' && token[0] != '1') || !names.contains(id) ||
            vcd.widths[names[id]] != 1)
        {
            problem("bad scalar " + token);
            return;
        }
        change(names[id], token.substr(0, 1));
    }

    void stamp(const std::string& token)
    {
        int64_t next = std::stoll(token.substr(1));
        if (next <= time)
        {
            problem("time not increasing at " + token);
        }
        time = next;
    }
};

} // namespace

Vcd Vcd::parse(const std::string& text)
{
    Reader reader;
    std::istringstream in(text);
    std::string token;
    bool timescale = false;
    bool scope = false;
    while (in >> token)
    {
        if (token == "$timescale")
        {
            timescale = true;
        }
        else if (token == "$scope")
        {
            std::string kind, name;
            in >> kind >> name;
            scope = kind == "module" && name == "ubb";
        }
        else if (token == "$var")
        {
            reader.declare(in);
        }
        else if (token == "$enddefinitions")
        {
            reader.defined = true;
        }
        else if (token[0] == '#')
        {
            reader.stamp(token);
        }
        else if (reader.defined && token[0] != '$')
        {
            reader.value(token, in);
        }
    }
    if (!timescale || !scope || !reader.defined)
    {
        reader.problem("header incomplete");
    }
    return reader.vcd;
}

std::string Vcd::at(const std::string& name, int64_t time) const
{
    std::string value = "?";
    auto found = changes.find(name);
    if (found == changes.end())
    {
        return value;
    }
    for (const Change& change : found->second)
    {
        if (change.at > time)
        {
            break;
        }
        value = change.value;
    }
    return value;
}

int64_t Vcd::firstChangeTo(const std::string& name,
                           const std::string& value) const
{
    auto found = changes.find(name);
    if (found == changes.end())
    {
        return -1;
    }
    const auto& trace = found->second;
    for (size_t i = 1; i < trace.size(); ++i)
    {
        if (trace[i].value == value && trace[i - 1].value != value)
        {
            return trace[i].at;
        }
    }
    return -1;
}

} // namespace ubbsim
