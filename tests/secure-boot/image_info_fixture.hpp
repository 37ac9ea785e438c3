#pragma once

#include "erot_boot_fixture.hpp"

#include "fakes/bus_fixture.hpp"
#include "orvane/power_service.hpp"
#include "secure-boot/ahdr.hpp"
#include "secure-boot/image_info_bus.hpp"
#include "utils/dbus_handler.hpp"

#include <sdbus-c++/sdbus-c++.h>

#include <cstring>

namespace orvane::test
{

using namespace std::chrono_literals;

inline std::string imageInfo(const std::string& suffix,
                             const std::string& property)
{
    return GetBusProperty(powerStatusPath, ImageInfoInterface(suffix),
                          property);
}

// The version's bytes lie 04 03 02 01 in the file, the customer id's 34 12.
inline AhdrHeader sampleAhdr()
{
    AhdrHeader ahdr{};
    ahdr.magic = ahdrMagic;
    const uint8_t bytes[] = {0x04, 0x03, 0x02, 0x01, 0x1A, 0,    0,   0,
                             0xEF, 0xBE, 0xAD, 0xDE, 0x34, 0x12, 0x0A};
    std::memcpy(reinterpret_cast<uint8_t*>(&ahdr) + 12, bytes, sizeof(bytes));
    std::memcpy(ahdr.componentDetails, "Retimer\x07 fw", 11);
    return ahdr;
}

inline erot::ComponentInfo record(uint16_t id, uint8_t active, uint8_t key,
                                  uint8_t svn)
{
    erot::ComponentInfo info{};
    info.componentId = id;
    info.active = active;
    info.keyId = 0x00C0FFEE;
    info.svn = 0x2A;
    info.keyRevocationStatus = key;
    info.svnRevocationStatus = svn;
    return info;
}

// The eRoT scripted, the daemon's objects served by the program's D-Bus
// thread, and a client of the EROT interface's methods.
class ImageInfoTest : public ErotBootTest
{
  protected:
    template <typename Result, typename... Args>
    Result call(const char* method, Args... args)
    {
        Result result{};
        proxy->callMethod(method)
            .onInterface(ImageInfoInterface("EROT"))
            .withArguments(args...)
            .storeResultsTo(result);
        return result;
    }
    // One page holding these records, the last.
    void replyComponentInfo(const std::vector<erot::ComponentInfo>& records)
    {
        erot::test::Bytes entries(records.size() * sizeof(erot::ComponentInfo));
        std::memcpy(entries.data(), records.data(), entries.size());
        device.reply(erot::test::page(0x0F, 0x02, 0, 4, entries));
    }
    std::vector<std::string> revocationEvents()
    {
        std::vector<std::string> found = events();
        std::erase_if(found, [](const std::string& event) {
            return event.find(".Revocation") == std::string::npos;
        });
        return found;
    }

    std::unique_ptr<sdbus::IProxy> proxy =
        sdbus::createProxy(orvaneBusName, powerStatusPath);
};

} // namespace orvane::test
