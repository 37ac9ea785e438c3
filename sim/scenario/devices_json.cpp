#include "scenario/devices_json.hpp"

#include <bit>
#include <functional>

namespace ubbsim
{

using namespace reader;

namespace
{

DeviceMark readMark(const json& value, const std::string& path)
{
    return readChoice(value, path, {"tampered", "erased"}, "device mark") ==
                   "tampered"
               ? DeviceMark::tampered
               : DeviceMark::erased;
}

// An object from device names to marks; `device` turns a name into the
// device's number, or fails naming the entry.
std::map<int, DeviceMark> readMarks(
    const json& value, const std::string& path,
    const std::function<int(const std::string&, const std::string&)>& device)
{
    expectObject(value, path);
    std::map<int, DeviceMark> marks;
    for (const auto& [name, mark] : value.items())
    {
        std::string at = child(path, name);
        marks[device(name, at)] = readMark(mark, at);
    }
    return marks;
}

// A key is text; a number in it is read as the value would be.
json keyValue(const std::string& name)
{
    bool digits = !name.empty() && name.size() < 10 &&
                  name.find_first_not_of("0123456789") == std::string::npos;
    return digits ? json(std::stoll(name)) : json(name);
}

int readSideName(const std::string& name, const std::string& at)
{
    if (name != "A" && name != "B")
    {
        fail(at, "a flash is named by its side, \"A\" or \"B\"");
    }
    return name == "A" ? 0 : 1;
}

int readSwitchValue(const std::string& name, const std::string& at)
{
    int64_t value = readHexInteger(keyValue(name), at, 0x01, 0x80);
    if (!std::has_single_bit(static_cast<uint64_t>(value)))
    {
        fail(at, "a retimer is named by its switch value, one of 0x01, "
                 "0x02, 0x04 ... 0x80");
    }
    return static_cast<int>(value);
}

} // namespace

DeviceScenario parseDevices(const json& value, const std::string& path,
                            const std::array<OamSlot, 8>& oams)
{
    Fields fields(value, path,
                  {"ubbFpgaFlash", "ifwi", "retimers", "stuckRetimers"});
    DeviceScenario devices;
    if (const json* flashes = fields.find("ubbFpgaFlash"))
    {
        devices.ubbFpgaFlash =
            readMarks(*flashes, fields.at("ubbFpgaFlash"), readSideName);
    }
    if (const json* ifwi = fields.find("ifwi"))
    {
        devices.ifwi =
            readMarks(*ifwi, fields.at("ifwi"),
                      [&oams](const std::string& name, const std::string& at) {
                          int oam = readOamIndex(keyValue(name), at);
                          if (!oams[static_cast<size_t>(oam)].present)
                          {
                              fail(at, "OAM " + name + " is not fitted");
                          }
                          return oam;
                      });
    }
    if (const json* retimers = fields.find("retimers"))
    {
        devices.retimers =
            readMarks(*retimers, fields.at("retimers"), readSwitchValue);
    }
    if (const json* stuck = fields.find("stuckRetimers"))
    {
        const std::string at = fields.at("stuckRetimers");
        if (!stuck->is_array())
        {
            fail(at, "a list of switch values");
        }
        for (size_t i = 0; i < stuck->size(); ++i)
        {
            const std::string item = at + "[" + std::to_string(i) + "]";
            const json& entry = (*stuck)[i];
            devices.stuckRetimers.insert(readSwitchValue(
                entry.is_string() ? entry.get<std::string>() : entry.dump(),
                item));
        }
    }
    return devices;
}

} // namespace ubbsim
