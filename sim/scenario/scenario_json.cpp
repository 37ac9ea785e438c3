#include "scenario/scenario_json.hpp"

#include "scenario/copy_json.hpp"
#include "scenario/devices_json.hpp"
#include "scenario/erot_json.hpp"
#include "scenario/fault_json.hpp"
#include "scenario/json_reader.hpp"
#include "scenario/manual_retimer_json.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>

namespace ubbsim
{

using namespace reader;

namespace
{

constexpr std::string_view defaultProduct = "KV35";
constexpr Seconds defaultEnd = 120;

// ---- FRU contents ---------------------------------------------------------

const std::vector<std::string_view> fixedFruProperties = {
    "BUS",
    "ADDRESS",
    "PRODUCT_PRODUCT_NAME",
    "PRODUCT_VERSION",
    "MULTIRECORD_VR_HW_DESIGN",
    "MULTIRECORD_THERMAL_MODEL",
    "MULTIRECORD_AIR_FLOW_DIR",
};

// A FRU text: a string, a number written in decimal, or null for a field
// that the EEPROM doesn't carry.
std::string readFruText(const json& value, const std::string& path,
                        bool numberAllowed)
{
    if (value.is_null())
    {
        return {};
    }
    if (numberAllowed && value.is_number_integer())
    {
        return std::to_string(value.get<int64_t>());
    }
    if (!value.is_string())
    {
        fail(path, numberAllowed ? "must be a string, a number or null"
                                 : "must be a string or null");
    }
    return value.get<std::string>();
}

bool isPropertyName(std::string_view name)
{
    auto wordChar = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
    };
    return !name.empty() &&
           std::isdigit(static_cast<unsigned char>(name[0])) == 0 &&
           std::all_of(name.begin(), name.end(), wordChar);
}

void mergeExtra(const json& value, const std::string& path,
                std::map<std::string, std::string>& extra)
{
    expectObject(value, path);
    for (const auto& [name, text] : value.items())
    {
        std::string where = child(path, name);
        if (!isPropertyName(name))
        {
            fail(where, "not a property name (letters, digits and _)");
        }
        if (std::find(fixedFruProperties.begin(), fixedFruProperties.end(),
                      name) != fixedFruProperties.end())
        {
            fail(where, "published by the FRU service itself, not by extra");
        }
        extra[name] = readString(text, where);
    }
}

void mergeFru(const json& value, const std::string& path, FruContents& fru)
{
    Fields fields(
        value, path,
        {"present", "productName", "hwDesign", "version", "thermal", "extra"});
    if (const json* present = fields.find("present"))
    {
        fru.present = readBool(*present, fields.at("present"));
    }
    struct Text
    {
        std::string_view key;
        std::string* target;
        bool numberAllowed;
    };
    for (const Text& text : {Text{"productName", &fru.productName, false},
                             Text{"hwDesign", &fru.hwDesign, true},
                             Text{"version", &fru.version, true},
                             Text{"thermal", &fru.thermal, true}})
    {
        if (const json* member = fields.find(text.key))
        {
            *text.target =
                readFruText(*member, fields.at(text.key), text.numberAllowed);
        }
    }
    if (const json* extra = fields.find("extra"))
    {
        mergeExtra(*extra, fields.at("extra"), fru.extra);
    }
}

std::string readProduct(const json& value, const std::string& path)
{
    return readChoice(value, path, views(knownProducts()), "product");
}

std::array<uint8_t, 32> readDigest(const json& value, const std::string& path)
{
    std::string text = value.is_string() ? value.get<std::string>() : "";
    if (text.size() != 64 ||
        text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
    {
        fail(path, "must be a SHA-256 digest of 64 hexadecimal digits");
    }
    std::array<uint8_t, 32> digest{};
    for (size_t i = 0; i < digest.size(); ++i)
    {
        digest[i] = static_cast<uint8_t>(
            std::stoul(text.substr(2 * i, 2), nullptr, 16));
    }
    return digest;
}

// ---- OAMs and UBB ---------------------------------------------------------

std::array<bool, oamCount> readPresent(const json& value,
                                       const std::string& path)
{
    std::array<bool, oamCount> present{};
    if (value.is_string() && value.get<std::string>() == "all")
    {
        present.fill(true);
        return present;
    }
    if (!value.is_array())
    {
        fail(path, "must be \"all\" or a list of OAM indexes");
    }
    for (const json& entry : value)
    {
        int index = readOamIndex(entry, path);
        if (present[index])
        {
            fail(path, "OAM index " + std::to_string(index) + " listed twice");
        }
        present[index] = true;
    }
    return present;
}

int slotIndex(const std::string& key, const std::string& path)
{
    std::string where = child(path, key);
    if (key.empty() || key.size() > 2 ||
        key.find_first_not_of("0123456789") != std::string::npos)
    {
        fail(where, "not an OAM index 0..7");
    }
    int index = std::stoi(key);
    if (index >= oamCount)
    {
        fail(where, "OAM index " + key + " out of range 0..7");
    }
    return index;
}

// A slot starts from the defaults of all OAMs; its own product beats the
// common product name, its own FRU fields beat both.
void parseSlot(const json& value, const std::string& path, OamSlot& slot)
{
    Fields fields(value, path,
                  {"product", "fru", "ibcAddress", "dacValue", "rmDigest"});
    if (const json* product = fields.find("product"))
    {
        slot.fru.productName =
            defaultOamFru(readProduct(*product, fields.at("product")))
                .productName;
    }
    if (const json* fru = fields.find("fru"))
    {
        mergeFru(*fru, fields.at("fru"), slot.fru);
    }
    if (const json* address = fields.find("ibcAddress"))
    {
        slot.ibcAddress = static_cast<uint8_t>(
            readHexInteger(*address, fields.at("ibcAddress"), 0x00, 0x7F));
    }
    if (const json* dac = fields.find("dacValue"))
    {
        slot.dacValue = static_cast<uint16_t>(
            readHexInteger(*dac, fields.at("dacValue"), 0x0000, 0xFFFF));
    }
    if (const json* digest = fields.find("rmDigest"))
    {
        slot.rmDigest = readDigest(*digest, fields.at("rmDigest"));
    }
}

// Fills the slots and returns the OAMs' product, the UBB's default.
std::string parseOams(const json& value, const std::string& path,
                      Scenario& scenario)
{
    Fields fields(value, path,
                  {"present", "product", "fru", "rmDigest", "slots"});
    std::string product(defaultProduct);
    if (const json* given = fields.find("product"))
    {
        product = readProduct(*given, fields.at("product"));
    }
    std::array<bool, oamCount> present{};
    present.fill(true);
    if (const json* list = fields.find("present"))
    {
        present = readPresent(*list, fields.at("present"));
    }
    for (int n = 0; n < oamCount; ++n)
    {
        OamSlot& slot = scenario.oams[n];
        slot.present = present[n];
        slot.fru = defaultOamFru(product);
        if (const json* fru = fields.find("fru"))
        {
            mergeFru(*fru, fields.at("fru"), slot.fru);
        }
        if (const json* digest = fields.find("rmDigest"))
        {
            slot.rmDigest = readDigest(*digest, fields.at("rmDigest"));
        }
    }
    if (const json* slots = fields.find("slots"))
    {
        std::string slotsPath = fields.at("slots");
        expectObject(*slots, slotsPath);
        for (const auto& [key, slot] : slots->items())
        {
            int index = slotIndex(key, slotsPath);
            parseSlot(slot, child(slotsPath, key), scenario.oams[index]);
        }
    }
    return product;
}

void parseUbb(const json* value, const std::string& path,
              const std::string& oamProduct, Scenario& scenario)
{
    scenario.ubbFru = defaultUbbFru(oamProduct);
    if (value == nullptr)
    {
        return;
    }
    Fields fields(*value, path, {"product", "fru"});
    if (const json* product = fields.find("product"))
    {
        scenario.ubbFru =
            defaultUbbFru(readProduct(*product, fields.at("product")));
    }
    if (const json* fru = fields.find("fru"))
    {
        mergeFru(*fru, fields.at("fru"), scenario.ubbFru);
    }
}

// ---- timed actions --------------------------------------------------------

const std::vector<std::pair<std::string_view, HostAction::Kind>> hostKinds = {
    {"enable", HostAction::Kind::enable},
    {"disable", HostAction::Kind::disable},
    {"unplug", HostAction::Kind::unplug},
    {"plug", HostAction::Kind::plug},
    {"serverReset", HostAction::Kind::serverReset},
    {"serverResetRelease", HostAction::Kind::serverResetRelease},
};

const std::vector<std::pair<std::string_view, DaemonAction::Kind>> daemonKinds =
    {
        {"restart", DaemonAction::Kind::restart},
        {"kill", DaemonAction::Kind::kill},
        {"respawn", DaemonAction::Kind::respawn},
        {"second", DaemonAction::Kind::second},
};

template <typename Kind>
Kind readKind(const json& value, const std::string& path,
              const std::vector<std::pair<std::string_view, Kind>>& kinds)
{
    std::vector<std::string_view> names;
    for (const auto& entry : kinds)
    {
        names.push_back(entry.first);
    }
    std::string name = readChoice(value, path, names, "action");
    for (const auto& [text, kind] : kinds)
    {
        if (text == name)
        {
            return kind;
        }
    }
    fail(path, "unknown action");
}

template <typename Action, typename Kind>
std::vector<Action> parseActions(
    const json& value, const std::string& path, Seconds end,
    const std::vector<std::pair<std::string_view, Kind>>& kinds)
{
    std::vector<Action> actions;
    for (size_t i = 0; i < readArray(value, path).size(); ++i)
    {
        Fields fields(value[i], element(path, i), {"at", "action"});
        Action action;
        action.at = readSeconds(fields.require("at"), fields.at("at"));
        checkWithinRun(action.at, end, fields.at("at"));
        action.kind =
            readKind(fields.require("action"), fields.at("action"), kinds);
        actions.push_back(action);
    }
    // Order in the file is free; the board plays them in time order.
    std::stable_sort(
        actions.begin(), actions.end(),
        [](const Action& a, const Action& b) { return a.at < b.at; });
    return actions;
}

std::vector<ClientCall> parseClients(const json& value, const std::string& path,
                                     Seconds end)
{
    std::vector<ClientCall> calls;
    for (size_t i = 0; i < readArray(value, path).size(); ++i)
    {
        Fields fields(value[i], element(path, i), {"at", "busctl"});
        ClientCall call;
        call.at = readSeconds(fields.require("at"), fields.at("at"));
        checkWithinRun(call.at, end, fields.at("at"));
        const std::string where = fields.at("busctl");
        const json& args = readArray(fields.require("busctl"), where);
        if (args.empty())
        {
            fail(where, "must name a busctl command");
        }
        for (size_t a = 0; a < args.size(); ++a)
        {
            call.busctl.push_back(readString(args[a], element(where, a)));
        }
        calls.push_back(call);
    }
    std::stable_sort(
        calls.begin(), calls.end(),
        [](const ClientCall& a, const ClientCall& b) { return a.at < b.at; });
    return calls;
}

// ---- run, start, flags and files -----------------------------------------

std::map<std::string, int> parseTools(const json& value,
                                      const std::string& path)
{
    expectObject(value, path);
    std::map<std::string, int> tools;
    for (const auto& [tool, status] : value.items())
    {
        std::string where = child(path, tool);
        if (!tool.starts_with("/"))
        {
            fail(where, "a tool is named by its absolute path");
        }
        tools[tool] = static_cast<int>(readInteger(status, where, 0, 255));
    }
    return tools;
}

std::map<std::string, std::string> parseFiles(const json& value,
                                              const std::string& path)
{
    expectObject(value, path);
    std::map<std::string, std::string> files;
    for (const auto& [file, contents] : value.items())
    {
        std::string where = child(path, file);
        if (!file.starts_with("/") || file.find("..") != std::string::npos)
        {
            fail(where, "a file is named by its absolute path, without \"..\"");
        }
        files[file] = readString(contents, where);
    }
    return files;
}

// An exit code of the update tool, or "signal".
int readToolStatus(const json& value, const std::string& path)
{
    if (value.is_string())
    {
        if (value.get<std::string>() != "signal")
        {
            fail(path, "must be an exit code 0..255 or \"signal\"");
        }
        return toolKilled;
    }
    return static_cast<int>(readInteger(value, path, 0, 255));
}

VrUpdateTool parseVrUpdate(const json& value, const std::string& path)
{
    Fields fields(value, path, {"ubb", "oams", "missing"});
    VrUpdateTool tool;
    if (const json* ubb = fields.find("ubb"))
    {
        tool.ubb = readToolStatus(*ubb, fields.at("ubb"));
    }
    if (const json* oams = fields.find("oams"))
    {
        expectObject(*oams, fields.at("oams"));
        for (const auto& [key, status] : oams->items())
        {
            tool.oams[slotIndex(key, fields.at("oams"))] =
                readToolStatus(status, child(fields.at("oams"), key));
        }
    }
    if (const json* missing = fields.find("missing"))
    {
        const json& folders = readArray(*missing, fields.at("missing"));
        for (size_t n = 0; n < folders.size(); ++n)
        {
            const std::string where = element(fields.at("missing"), n);
            std::string folder = readString(folders[n], where);
            const bool inBundle =
                (folder.starts_with("/var/lib/images/") ||
                 folder.starts_with("/run/initramfs/ro/var/lib/images/")) &&
                folder.find("/vr-bundle") != std::string::npos &&
                folder.find("..") == std::string::npos;
            if (!inBundle)
            {
                fail(where, "must be a folder of a vr-bundle tree under "
                            "/var/lib/images or /run/initramfs/ro");
            }
            tool.missing.push_back(std::move(folder));
        }
    }
    return tool;
}

void parseRun(const Fields& fields, Scenario& scenario)
{
    if (const json* end = fields.find("end"))
    {
        scenario.end = readSeconds(*end, fields.at("end"));
        if (scenario.end <= 0)
        {
            fail(fields.at("end"), "must be a number of seconds > 0");
        }
    }
    if (const json* speed = fields.find("speed"))
    {
        if (!speed->is_number() || !(speed->get<double>() > 0) ||
            !std::isfinite(speed->get<double>()))
        {
            fail(fields.at("speed"),
                 "must be a number > 0 (board seconds per second)");
        }
        scenario.speed = speed->get<double>();
    }
}

void parseStart(const Fields& fields, Scenario& scenario)
{
    if (const json* start = fields.find("start"))
    {
        scenario.start = readChoice(*start, fields.at("start"),
                                    {"cold", "warm"}, "start kind") == "warm"
                             ? ResetKind::warm
                             : ResetKind::cold;
    }
    if (const json* wasOn = fields.find("baseWasOn"))
    {
        scenario.baseWasOn = readBool(*wasOn, fields.at("baseWasOn"));
        if (scenario.baseWasOn && scenario.start != ResetKind::warm)
        {
            fail(fields.at("baseWasOn"), "needs \"start\": \"warm\"");
        }
    }
}

void parseText(const Fields& fields, Scenario& scenario)
{
    if (const json* name = fields.find("name"))
    {
        scenario.name = readString(*name, fields.at("name"));
        if (scenario.name.empty())
        {
            fail(fields.at("name"), "must not be empty");
        }
    }
    if (const json* description = fields.find("description"))
    {
        scenario.description =
            readString(*description, fields.at("description"));
    }
}

void parseFlags(const Fields& fields, Scenario& scenario)
{
    if (const json* k517 = fields.find("k517"))
    {
        scenario.k517 = readBool(*k517, fields.at("k517"));
    }
    if (const json* valid = fields.find("fruValid"))
    {
        scenario.fruValid = readBool(*valid, fields.at("fruValid"));
    }
}

// A fault on a rail that the board doesn't carry would never show.
void checkRailsFitted(const Scenario& scenario)
{
    for (size_t i = 0; i < scenario.faults.size(); ++i)
    {
        const std::string& rail = scenario.faults[i].rail;
        if (!scenario.k517 && rail.ends_with("_K517"))
        {
            fail(element("faults", i) + ".rail",
                 inQuotes(rail) + " is not fitted with \"k517\": false");
        }
    }
}

std::string readFile(const std::filesystem::path& path)
{
    std::ifstream in(path);
    if (!in)
    {
        throw ScenarioError(path.string() + ": cannot be read");
    }
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

} // namespace

// ---- public ---------------------------------------------------------------

const std::vector<std::string>& knownProducts()
{
    static const std::vector<std::string> products = {
        "KV10X",   "KV18X", "KV10XHF", "KV20X", "KV20",
        "KV20DLC", "KV30",  "KV35",    "KV38"};
    return products;
}

const std::vector<std::string>& railNames()
{
    // The daemon's event names, and the k517 twins of the two 1V8 retimer
    // rails, which share event numbers 10 and 11 with them but are rails
    // of their own.
    static const std::vector<std::string> rails = {
        "VCCINT_FPGA",   "VCC_BRAM_FPGA", "VCCAUX_FPGA", "SYS_1V8_FPGA",
        "UTIL_3V3_FPGA", "0V9_AD_RT01",   "0V9_AD_RT23", "0V9_AD_RT45",
        "0V9_AD_RT67",   "1V8_RT03",      "1V8_RT47",    "1V8_RT03_K517",
        "1V8_RT47_K517", "P3V3_OAM_03",   "P3V3_OAM_47"};
    return rails;
}

const std::vector<std::string>& gpioLineNames()
{
    static const std::vector<std::string> lines = {
        "GPU_BASE_FPGA_READY",  "GPU_BASE_HMC_READY", "GPU_BASE_PWR_GD",
        "GPU_BASE_PWR_EN",      "SMC_FPGA_PROG_CTRL", "SMC_UBB_FPGA_SPI_SEL",
        "SMC_UBB_FLASH_AB_SEL", "UBB_FPGA_PROG_B",    "HDT_DBREQ_L"};
    return lines;
}

FruContents defaultOamFru(const std::string& product)
{
    FruContents fru;
    // The daemon finds the product as a word with a blank on each side.
    fru.productName = "OAM " + product + " AC B";
    fru.hwDesign = "7";
    fru.version = "A01";
    fru.thermal = "1";
    return fru;
}

FruContents defaultUbbFru(const std::string& product)
{
    FruContents fru;
    fru.productName = "UBB " + product + " BASEBOARD";
    // Read as a UBB design number: 3 looks up design 23.
    fru.hwDesign = "3";
    fru.version = "A01";
    fru.thermal = "1";
    return fru;
}

Scenario parseScenario(const json& document)
{
    Fields fields(document, "",
                  {"name",    "description",  "start",        "baseWasOn",
                   "oams",    "ubb",          "k517",         "fruValid",
                   "host",    "faults",       "daemon",       "clients",
                   "tools",   "files",        "logNvMount",   "erot",
                   "devices", "vrUpdate",     "firmwareCopy", "end",
                   "speed",   "manualRetimer"});
    Scenario scenario;
    scenario.name = "custom";
    scenario.end = defaultEnd;
    parseText(fields, scenario);
    // The end first: every time of the run is checked against it.
    parseRun(fields, scenario);
    parseStart(fields, scenario);
    parseFlags(fields, scenario);
    json noOams = json::object();
    const json* oams = fields.find("oams");
    std::string product =
        parseOams(oams != nullptr ? *oams : noOams, "oams", scenario);
    parseUbb(fields.find("ubb"), "ubb", product, scenario);
    if (const json* host = fields.find("host"))
    {
        scenario.host = parseActions<HostAction>(*host, fields.at("host"),
                                                 scenario.end, hostKinds);
    }
    if (const json* faults = fields.find("faults"))
    {
        scenario.faults =
            parseFaults(*faults, fields.at("faults"), scenario.end);
        checkRailsFitted(scenario);
    }
    if (const json* daemon = fields.find("daemon"))
    {
        scenario.daemon = parseActions<DaemonAction>(
            *daemon, fields.at("daemon"), scenario.end, daemonKinds);
    }
    if (const json* clients = fields.find("clients"))
    {
        scenario.clients =
            parseClients(*clients, fields.at("clients"), scenario.end);
    }
    if (const json* tools = fields.find("tools"))
    {
        scenario.toolExit = parseTools(*tools, fields.at("tools"));
    }
    if (const json* files = fields.find("files"))
    {
        scenario.files = parseFiles(*files, fields.at("files"));
    }
    if (const json* mount = fields.find("logNvMount"))
    {
        scenario.logNvMount = readSeconds(*mount, fields.at("logNvMount"));
        checkWithinRun(scenario.logNvMount, scenario.end,
                       fields.at("logNvMount"));
    }
    if (const json* vr = fields.find("vrUpdate"))
    {
        scenario.vrUpdate = parseVrUpdate(*vr, fields.at("vrUpdate"));
    }
    if (const json* erot = fields.find("erot"))
    {
        scenario.erot = parseErot(*erot, fields.at("erot"), scenario.end);
    }
    // An SMC that restarts under board power had a daemon before it that
    // finished its secure boot.
    if (!scenario.erot.secureBootFinished)
    {
        scenario.erot.secureBootFinished = scenario.start == ResetKind::warm;
    }
    if (const json* devices = fields.find("devices"))
    {
        scenario.devices =
            parseDevices(*devices, fields.at("devices"), scenario.oams);
    }
    if (const json* copy = fields.find("firmwareCopy"))
    {
        scenario.firmwareCopy =
            parseFirmwareCopy(*copy, fields.at("firmwareCopy"), scenario.erot);
    }
    if (const json* manual = fields.find("manualRetimer"))
    {
        scenario.manualRetimer = parseManualRetimer(
            *manual, fields.at("manualRetimer"), scenario.erot);
    }
    return scenario;
}

Scenario loadScenario(const std::string& nameOrPath,
                      const std::string& builtinDir)
{
    bool isPath = nameOrPath.find('/') != std::string::npos ||
                  nameOrPath.ends_with(".json");
    std::filesystem::path file =
        isPath ? std::filesystem::path(nameOrPath)
               : std::filesystem::path(builtinDir) / (nameOrPath + ".json");
    if (!isPath && !std::filesystem::exists(file))
    {
        std::string known;
        for (const std::string& name : builtinScenarioNames(builtinDir))
        {
            known += (known.empty() ? "" : ", ") + name;
        }
        throw ScenarioError("no built-in scenario " + inQuotes(nameOrPath) +
                            " (built-in: " + known + ")");
    }
    json document;
    try
    {
        document = json::parse(readFile(file));
    }
    catch (const json::parse_error& error)
    {
        throw ScenarioError(file.string() + ": " + error.what());
    }
    try
    {
        Scenario scenario = parseScenario(document);
        if (!document.contains("name"))
        {
            scenario.name = file.stem().string();
        }
        return scenario;
    }
    catch (const ScenarioError& error)
    {
        throw ScenarioError(file.string() + ": " + error.what());
    }
}

std::vector<std::string> builtinScenarioNames(const std::string& builtinDir)
{
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry :
         std::filesystem::directory_iterator(builtinDir, error))
    {
        if (entry.path().extension() == ".json")
        {
            names.push_back(entry.path().stem().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace ubbsim
