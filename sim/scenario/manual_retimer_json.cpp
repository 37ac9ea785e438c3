#include "scenario/manual_retimer_json.hpp"

namespace ubbsim
{

using namespace reader;

namespace
{

std::set<std::string> readRetimers(const json& value, const std::string& path)
{
    std::set<std::string> names;
    const json& list = readArray(value, path);
    for (size_t i = 0; i < list.size(); ++i)
    {
        const std::string at = element(path, i);
        if (!names
                 .insert(readChoice(list[i], at, {"Retimer_1", "Retimer_2"},
                                    "retimer image"))
                 .second)
        {
            fail(at, inQuotes(list[i].get<std::string>()) + " listed twice");
        }
    }
    return names;
}

} // namespace

ManualRetimerUpdate parseManualRetimer(const json& value,
                                       const std::string& path,
                                       const ErotScenario& erot)
{
    Fields fields(value, path, {"archived", "stored", "flag"});
    if (!erot.dualRetimers)
    {
        fail(path, "needs \"erot\": {\"retimers\": \"dual\"}: the archives "
                   "hold the eRoT's two retimer images");
    }
    ManualRetimerUpdate update;
    if (const json* archived = fields.find("archived"))
    {
        update.archived = readRetimers(*archived, fields.at("archived"));
    }
    if (const json* stored = fields.find("stored"))
    {
        update.stored = readRetimers(*stored, fields.at("stored"));
    }
    if (const json* flag = fields.find("flag"))
    {
        update.flag = readBool(*flag, fields.at("flag"));
    }
    return update;
}

} // namespace ubbsim
