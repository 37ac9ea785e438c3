#include "scenario/copy_json.hpp"

#include "erot/fw_components.hpp"

#include <functional>

namespace ubbsim
{

using namespace reader;

namespace
{

// The component whose image pair holds `file`, if any.
std::optional<erot::FwComponent> ownerOf(const std::string& file)
{
    for (const erot::FwComponent& component : erot::fwComponents)
    {
        if (component.stem.empty())
        {
            continue;
        }
        const std::string stem(component.stem);
        if (file == stem + ".bin" ||
            (component.hasAhdr && file == stem + ".ahdr"))
        {
            return component;
        }
    }
    return std::nullopt;
}

// The file names of an array; `check` refuses a name, naming its element.
std::vector<std::string> readFiles(
    const json& value, const std::string& path,
    const std::function<void(const erot::FwComponent&, const std::string&)>&
        check)
{
    std::vector<std::string> files;
    const json& list = readArray(value, path);
    for (size_t i = 0; i < list.size(); ++i)
    {
        const std::string at = element(path, i);
        std::string file = readString(list[i], at);
        auto owner = ownerOf(file);
        if (!owner)
        {
            fail(at, "not a file of the image tree: " + inQuotes(file));
        }
        check(*owner, at);
        files.push_back(std::move(file));
    }
    return files;
}

} // namespace

FirmwareCopyScenario parseFirmwareCopy(const json& value,
                                       const std::string& path,
                                       const ErotScenario& erot)
{
    Fields fields(value, path,
                  {"copyCompleted", "inactiveDiffers", "inactiveOnly",
                   "backupFlashDiffers", "eraseFails"});
    FirmwareCopyScenario copy;
    if (const json* completed = fields.find("copyCompleted"))
    {
        copy.copyCompleted = readBool(*completed, fields.at("copyCompleted"));
    }
    if (const json* differs = fields.find("inactiveDiffers"))
    {
        copy.inactiveDiffers = readFiles(
            *differs, fields.at("inactiveDiffers"),
            [&erot](const erot::FwComponent& owner, const std::string& at) {
                if (owner.name == "SMC")
                {
                    fail(at, "the SMC's inactive side is its backup flash: "
                             "backupFlashDiffers");
                }
                if (!erot::carried(erot.dualRetimers, owner.id))
                {
                    fail(at, "the retimer layout holds no such file");
                }
            });
    }
    if (const json* only = fields.find("inactiveOnly"))
    {
        copy.inactiveOnly = readFiles(
            *only, fields.at("inactiveOnly"),
            [&erot](const erot::FwComponent& owner, const std::string& at) {
                if (!owner.name.starts_with("Retimer") ||
                    erot::carried(erot.dualRetimers, owner.id))
                {
                    fail(at, "must be a retimer file that the layout doesn't "
                             "carry");
                }
            });
    }
    if (const json* backup = fields.find("backupFlashDiffers"))
    {
        copy.backupFlashDiffers =
            readBool(*backup, fields.at("backupFlashDiffers"));
    }
    if (const json* erase = fields.find("eraseFails"))
    {
        copy.eraseFails =
            readChoice(*erase, fields.at("eraseFails"),
                       {"bmc_backup_update", "smc_ahdr_update", "apcfg_update"},
                       "update partition");
    }
    return copy;
}

} // namespace ubbsim
