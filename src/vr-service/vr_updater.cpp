#include "vr-service/vr_updater.hpp"

#include "logging/log_line.hpp"
#include "utils/dbus_handler.hpp"
#include "utils/hex_text.hpp"
#include "utils/i2c_ops.hpp"
#include "vr-service/vr_board.hpp"
#include "vr-service/vr_bus.hpp"
#include "vr-service/vr_texts.hpp"

#include <systemd/sd-bus.h>

#include <bit>
#include <cstdlib>
#include <optional>

namespace orvane
{

namespace
{

using namespace logging::level;
using namespace vr_board;

constexpr int attempts = 3;

void failedScan()
{
    ConsoleLog(ERR) << "*** Failed Scan FRU ***";
}

// A property of a FRU object, tried up to three times; the error code of
// the last attempt, 0 on success.
int readNumber(sd_bus* bus, const std::string& path, const char* name,
               uint32_t& value, bool logEach)
{
    int r = 0;
    for (int attempt = 1; attempt <= attempts; ++attempt)
    {
        sd_bus_error error = SD_BUS_ERROR_NULL;
        r = sd_bus_get_property_trivial(bus, fruService, path.c_str(),
                                        fruInterface, name, &error, 'u',
                                        &value);
        sd_bus_error_free(&error);
        if (r >= 0)
        {
            return 0;
        }
        if (logEach || attempt == attempts)
        {
            ConsoleLog(ERR) << "Get " << name << " failed(err:" << r << ")";
        }
    }
    return r;
}

int readText(sd_bus* bus, const std::string& path, const char* name,
             std::string& value)
{
    int r = 0;
    for (int attempt = 1; attempt <= attempts; ++attempt)
    {
        sd_bus_error error = SD_BUS_ERROR_NULL;
        char* text = nullptr;
        r = sd_bus_get_property_string(bus, fruService, path.c_str(),
                                       fruInterface, name, &error, &text);
        sd_bus_error_free(&error);
        if (r >= 0)
        {
            value = text != nullptr ? text : "";
            std::free(text);
            return 0;
        }
    }
    return r;
}

// One call to the FRU manager, with its texts.
bool rescan(const char* member, std::optional<uint8_t> bus, uint64_t timeout)
{
    ConsoleLog(INFO) << "*** Rescan Fru device ***";
    VrBus connection;
    if (!connection.open())
    {
        return false;
    }
    sd_bus_message* message = nullptr;
    sd_bus_message* reply = nullptr;
    sd_bus_error error = SD_BUS_ERROR_NULL;
    int r = sd_bus_message_new_method_call(connection.bus, &message, fruService,
                                           fruManagerObject,
                                           fruManagerInterface, member);
    bool ok = false;
    if (r < 0)
    {
        ConsoleLog(ERR) << "sd_bus_message_new_method_call failed(err:" << r
                        << ")";
    }
    else if (bus && (r = sd_bus_message_append(message, "y", *bus)) < 0)
    {
        ConsoleLog(ERR) << "sd_bus_message_append failed(err:" << r << ")";
    }
    else if (sd_bus_call(connection.bus, message, timeout, &error, &reply) < 0)
    {
        ConsoleLog(ERR) << "Error Rescan FruDevice";
    }
    else
    {
        ok = true;
    }
    sd_bus_error_free(&error);
    sd_bus_message_unref(reply);
    sd_bus_message_unref(message);
    return ok;
}

// The paths of a GetSubTree reply, with the text of the step that failed.
bool walkSubTree(sd_bus_message* reply, std::vector<std::string>& paths)
{
    int r =
        sd_bus_message_enter_container(reply, SD_BUS_TYPE_ARRAY, "{sa{sas}}");
    if (r < 0)
    {
        ConsoleLog(ERR) << "sd_bus_message_enter failed(err:" << r << ")";
        return false;
    }
    while ((r = sd_bus_message_enter_container(reply, SD_BUS_TYPE_DICT_ENTRY,
                                               "sa{sas}")) > 0)
    {
        const char* path = nullptr;
        for (int attempt = 1; attempt <= attempts; ++attempt)
        {
            r = sd_bus_message_read_basic(reply, 's', &path);
            if (r >= 0)
            {
                break;
            }
        }
        if (r < 0)
        {
            ConsoleLog(ERR)
                << "sd_bus_message_read_basic failed(err:" << r << ")";
            return false;
        }
        ConsoleLog(INFO) << "Object Path: " << path;
        paths.emplace_back(path);
        if ((r = sd_bus_message_skip(reply, "a{sas}")) < 0)
        {
            ConsoleLog(ERR) << "sd_bus_message_skip failed(err:" << r << ")";
            return false;
        }
        if ((r = sd_bus_message_exit_container(reply)) < 0)
        {
            ConsoleLog(ERR)
                << "sd_bus_message_exit_container failed(err:" << r << ")";
            return false;
        }
    }
    if (r < 0)
    {
        ConsoleLog(ERR) << "sd_bus_message_enter failed(err:" << r << ")";
        return false;
    }
    return true;
}

} // namespace

VrUpdater::VrUpdater() : designs(MakeDesignTable())
{
    fruRecords.reserve(9);
}

bool VrUpdater::RescanFruBus()
{
    return rescan("ReScanBus", ubbFruBus, rescanBusTimeoutUs);
}

bool VrUpdater::RescanFruAll()
{
    return rescan("ReScan", std::nullopt, 0);
}

bool VrUpdater::ListFruObjects()
{
    ConsoleLog(INFO) << "*** Get FRU subtree ***";
    fruPaths.clear();
    VrBus connection;
    bool ok = connection.open(attempts);
    sd_bus_message* reply = nullptr;
    if (ok)
    {
        int r = 0;
        for (int attempt = 1; attempt <= attempts; ++attempt)
        {
            sd_bus_error error = SD_BUS_ERROR_NULL;
            r = sd_bus_call_method(connection.bus, mapperService, mapperObject,
                                   mapperInterface, "GetSubTree", &error,
                                   &reply, "sias", "/", 0, 1, fruInterface);
            sd_bus_error_free(&error);
            if (r >= 0)
            {
                break;
            }
        }
        if (r < 0)
        {
            ConsoleLog(ERR) << "sd_bus_call_method failed(err:" << r << ")";
            ok = false;
        }
    }
    ok = ok && walkSubTree(reply, fruPaths);
    sd_bus_message_unref(reply);
    if (!ok)
    {
        ConsoleLog(ERR) << "*** Failed Get FRU subtree ***";
        return false;
    }
    ConsoleLog(INFO) << "*** End Get FRU subtree ***";
    return true;
}

void VrUpdater::SetVrInfoProperty(const std::string& interface,
                                  const std::string& property,
                                  const std::string& value)
{
    SetBusPropertyAt(vrInfoObject, interface, property, value);
}

uint8_t VrUpdater::ReadOamPresentMask()
{
    int event = 0;
    uint8_t value = 0;
    if (!WriteReadWithRetry(&event, attempts, presentBus, presentAddress,
                            presentRegister, 0, nullptr, 1, &value, true,
                            "Power Sequence: Read OAM PRSNT signal to detect "
                            "OAM"))
    {
        ConsoleLog(ERR) << "Fail to read OAM PRSNT signal to detect OAM";
        return 0;
    }
    ConsoleLog(INFO) << "Read OAM PRSNT signal (active low) to detect OAM. "
                        "Value: 0x"
                     << HexText(value, 2);
    return static_cast<uint8_t>(~value);
}

bool VrUpdater::ScanFru(int kind)
{
    ConsoleLog(INFO) << "*** Scan FRU Device***";
    fruRecords.clear();
    fruRecords.reserve(9);
    if (!ListFruObjects())
    {
        ConsoleLog(ERR) << "*** Failed Scan FRU ***";
        return false;
    }
    VrBus connection;
    if (!connection.open(attempts))
    {
        failedScan();
        return false;
    }
    for (const std::string& path : fruPaths)
    {
        ConsoleLog(INFO) << "Get info from obj path: " << path;
        FruRecord record;
        if (readNumber(connection.bus, path, "ADDRESS", record.address, true) !=
                0 ||
            readNumber(connection.bus, path, "BUS", record.bus, false) != 0)
        {
            failedScan();
            return false;
        }
        if (readText(connection.bus, path, "MULTIRECORD_VR_HW_DESIGN",
                     record.partNumber) != 0)
        {
            ConsoleLog(ERR) << "Multirecord property missing";
            HaltBoot();
        }
        std::string productName;
        for (auto [name, value] :
             {std::pair{"PRODUCT_VERSION", &record.version},
              std::pair{"PRODUCT_PRODUCT_NAME", &productName}})
        {
            if (int r = readText(connection.bus, path, name, *value); r != 0)
            {
                ConsoleLog(ERR) << "Get " << name << " failed(err:" << r << ")";
                failedScan();
                return false;
            }
        }
        LookUpDesign(designs, record, kind);

        const char* thermalName =
            record.bus == ubbFruBus && record.address == ubbFruAddress
                ? "MULTIRECORD_AIR_FLOW_DIR"
                : "MULTIRECORD_THERMAL_MODEL";
        std::string thermal;
        if (readText(connection.bus, path, thermalName, thermal) != 0)
        {
            ConsoleLog(WARNING)
                << "Did not find " << thermalName << " entry in the FRU";
        }
        else
        {
            record.thermalInfo = ThermalText(thermal, productName, kind);
        }

        std::string name;
        if (kind == fruKindOam)
        {
            auto number = OamNumberForBus(record.bus);
            if (!number)
            {
                continue;
            }
            record.index = *number;
            name = "OAM_" + std::to_string(*number);
        }
        else if (record.bus != ubbFruBus)
        {
            continue;
        }
        else
        {
            record.index = ubbFruBus;
            name = "UBB";
        }
        ConsoleLog(INFO) << (kind == fruKindOam ? "* Get OAM " : "* Get UBB ")
                         << static_cast<int>(record.index) << " FRU, Model("
                         << record.partNumber << "), Version(" << record.version
                         << "), Rev(" << record.hwDesign << "), Bus("
                         << record.bus << "), Addr(" << record.address << ")";
        const std::string interface = std::string(vrInfoInterface) + name;
        SetVrInfoProperty(interface, "HW_DESIGN",
                          std::to_string(record.hwDesign));
        SetVrInfoProperty(interface, "PART_NUMBER", record.partNumber);
        SetVrInfoProperty(interface, "THERMAL_INFO", record.thermalInfo);
        fruRecords.push_back(std::move(record));
    }

    if (kind == fruKindOam)
    {
        const int expected = std::popcount(ReadOamPresentMask());
        if (expected > static_cast<int>(fruRecords.size()))
        {
            ConsoleLog(ERR) << "There should be " << expected
                            << " OAM devices in FRU, but there are only "
                            << fruRecords.size();
            ConsoleLog(ERR) << "*** Failed Scan OAM FRU ***";
            return false;
        }
        ConsoleLog(INFO) << "Found all " << expected << " OAM FRUs";
    }
    else if (fruRecords.empty())
    {
        ConsoleLog(ERR) << "There should be 1 UBB device in FRU, but there "
                           "are only "
                        << 0;
        ConsoleLog(ERR) << "*** Failed Scan UBB FRU ***";
        return false;
    }
    ConsoleLog(INFO) << "*** End Scan FRU ***";
    return true;
}

} // namespace orvane
