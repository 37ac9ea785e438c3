#pragma once

#include "erot_boot_fixture.hpp"

#include "fakes/bus_fixture.hpp"
#include "orvane/power_service.hpp"
#include "secure-boot/ahdr.hpp"
#include "secure-boot/image_info_bus.hpp"
#include "utils/dbus_handler.hpp"

#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <cstring>
#include <thread>

namespace orvane::test
{

using namespace std::chrono_literals;

inline std::string imageInfo(const std::string& suffix,
                             const std::string& property)
{
    return GetBusProperty(powerStatusPath, ImageInfoInterface(suffix),
                          property);
}

// Version bytes 04 03 02 01 in the file, and the other fields distinct.
inline AhdrHeader sampleAhdr()
{
    AhdrHeader ahdr{};
    ahdr.magic = ahdrMagic;
    const uint8_t versionBytes[] = {0x04, 0x03, 0x02, 0x01};
    std::memcpy(reinterpret_cast<uint8_t*>(&ahdr) + 12, versionBytes, 4);
    ahdr.securityVersion = 0x1A;
    ahdr.signingKeyId = 0xDEADBEEF;
    const uint8_t customerBytes[] = {0x34, 0x12};
    std::memcpy(reinterpret_cast<uint8_t*>(&ahdr) + 24, customerBytes, 2);
    ahdr.variantId = 0x0A;
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
// thread, and a client proxy for the EROT interface's methods.
class ImageInfoTest : public ErotBootTest
{
  protected:
    const std::string erotInterface = ImageInfoInterface("EROT");
    std::unique_ptr<sdbus::IProxy> proxy =
        sdbus::createProxy(orvaneBusName, powerStatusPath);

    int call(const char* method)
    {
        int result = 0;
        proxy->callMethod(method)
            .onInterface(erotInterface)
            .storeResultsTo(result);
        return result;
    }
    std::vector<sdbus::Variant> getAutoArb()
    {
        std::vector<sdbus::Variant> answer;
        proxy->callMethod("GetAutoARBCommit")
            .onInterface(erotInterface)
            .storeResultsTo(answer);
        return answer;
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
        std::vector<std::string> found;
        for (const std::string& event : events())
        {
            if (event.find(".Revocation") != std::string::npos)
            {
                found.push_back(event);
            }
        }
        return found;
    }
};

} // namespace orvane::test
