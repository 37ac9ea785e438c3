#include "neighbours/object_index.hpp"

#include <algorithm>
#include <utility>

namespace ubbsim
{

namespace
{

// Standard interfaces that every object on the bus answers.
const std::vector<std::string> standardInterfaces = {
    "org.freedesktop.DBus.Introspectable",
    "org.freedesktop.DBus.Peer",
    "org.freedesktop.DBus.Properties",
};

// Levels of `path` below `root`, or -1 when it isn't below it.
int levelsBelow(const std::string& root, const std::string& path)
{
    std::string prefix = root.ends_with("/") ? root : root + "/";
    if (!path.starts_with(prefix) || path.size() == prefix.size())
    {
        return -1;
    }
    std::string rest = path.substr(prefix.size());
    return 1 + static_cast<int>(std::count(rest.begin(), rest.end(), '/'));
}

using Owners = std::map<std::string, std::vector<std::string>>;

// The services of an object that implement one of `wanted`.
Owners owning(const Owners& owners, const std::vector<std::string>& wanted)
{
    Owners matching;
    for (const auto& [service, interfaces] : owners)
    {
        bool any =
            wanted.empty() ||
            std::any_of(interfaces.begin(), interfaces.end(),
                        [&wanted](const std::string& interface) {
                            return std::find(wanted.begin(), wanted.end(),
                                             interface) != wanted.end();
                        });
        if (any)
        {
            matching[service] = interfaces;
        }
    }
    return matching;
}

} // namespace

void ObjectIndex::add(const std::string& path, const std::string& service,
                      const std::vector<std::string>& interfaces)
{
    std::vector<std::string>& known = objects[path][service];
    for (const std::vector<std::string>* list :
         {&interfaces, &standardInterfaces})
    {
        for (const std::string& interface : *list)
        {
            if (std::find(known.begin(), known.end(), interface) == known.end())
            {
                known.push_back(interface);
            }
        }
    }
    std::sort(known.begin(), known.end());
}

SubTree ObjectIndex::subTree(const std::string& root, int32_t depth,
                             const std::vector<std::string>& interfaces) const
{
    SubTree found;
    for (const auto& [path, owners] : objects)
    {
        int levels = levelsBelow(root, path);
        if (levels < 0 || (depth > 0 && levels > depth))
        {
            continue;
        }
        Owners matching = owning(owners, interfaces);
        if (!matching.empty())
        {
            found[path] = std::move(matching);
        }
    }
    return found;
}

} // namespace ubbsim
