#include "secure-boot/image_info_bus.hpp"

#include "logging/log_line.hpp"
#include "orvane/power_service.hpp"
#include "secure-boot/erot_calls.hpp"
#include "secure-boot/fw_type.hpp"
#include "secure-boot/revocation_report.hpp"
#include "secure-boot/secure_boot_service.hpp"
#include "utils/critical_section.hpp"
#include "utils/string_property.hpp"

#include <sdbus-c++/sdbus-c++.h>
#include <semaphore.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

namespace orvane
{

namespace
{

using logging::level::ERR;

constexpr std::array<FwType, 12> registrationOrder{
    FwType::VR,       FwType::Retimer, FwType::Retimer_1, FwType::Retimer_2,
    FwType::UBB_FPGA, FwType::RM,      FwType::IFWI,      FwType::EROT,
    FwType::SMC_FPGA, FwType::APCFG,   FwType::SMC,       FwType::BUNDLE};

constexpr int oamCount = 8;

using Defaults = std::vector<std::pair<std::string, std::string>>;

// What the EROT and VR interfaces carry beyond the nine.
Defaults extraProperties(FwType id)
{
    if (id == FwType::EROT)
    {
        return {{"UpdateOnReboot", "False"}};
    }
    if (id != FwType::VR)
    {
        return {};
    }
    Defaults extra;
    for (int oam = 0; oam < oamCount; ++oam)
    {
        extra.emplace_back("OAM" + std::to_string(oam) + "VRVersion", "00.00");
    }
    extra.emplace_back("UBBVRVersion", "00.00");
    extra.emplace_back("VRStatus", "Unknown");
    extra.emplace_back("VRFruScanComplete", "0");
    return extra;
}

std::atomic<SecureBootService*> attached{nullptr};

BootContext& methodContext()
{
    static BootContext unattached;
    SecureBootService* service = attached.load();
    return service != nullptr ? *service->criticalSection : unattached;
}

// Handed to the revocation report in place of the caller's context: a halt
// in the report posts `released` and then sleeps for ever on the report's
// thread.
struct HaltRelay
{
    HaltRelay()
    {
        sem_init(&released, 0, 0);
        // Held from the start, so that the halt's leave reaches it.
        EnterBootCriticalSection(&released);
        context.criticalSection = &released;
    }
    ~HaltRelay()
    {
        sem_destroy(&released);
    }
    HaltRelay(const HaltRelay&) = delete;
    HaltRelay& operator=(const HaltRelay&) = delete;

    sem_t released;
    std::atomic<bool> finished{false};
    BootContext context;
};

// The revocation report after a commit, on a thread of its own: a halt in
// it must not take the event loop along, which serves the objects that a
// halted board still shows and answers the halt's own status write. The
// handler waits until the report returns or the halt has released the
// relay, and then passes the release on to the Boot Critical Section.
void reportRevocationBesideTheLoop(BootContext& context)
{
    auto relay = std::make_shared<HaltRelay>();
    std::thread([relay] {
        try
        {
            ReportRevocation(relay->context);
            relay->finished = true;
        }
        catch (...)
        {
            // Whatever else ends the report counts as a halt.
        }
        sem_post(&relay->released);
    }).detach();
    while (sem_wait(&relay->released) != 0 && errno == EINTR)
    {}
    if (!relay->finished)
    {
        LeaveBootCriticalSection(context.criticalSection);
    }
}

int arbCommit()
{
    BootContext& context = methodContext();
    int result = ErotARBCommit(context);
    if (result == 0)
    {
        reportRevocationBesideTheLoop(context);
    }
    return result;
}

// The anti-rollback methods. Each blocks the event loop for its exchange
// with the eRoT; a failure is the result, never a failed call.
void registerArbMethods(sdbus::IObject& object, const std::string& interface)
{
    auto add = [&](const char* name, auto handler) {
        try
        {
            object.registerMethod(name).onInterface(interface).implementedAs(
                std::move(handler));
        }
        catch (const sdbus::Error&)
        {
            ConsoleLog(ERR)
                << "Dbus interface " << interface << " register method " << name
                << " fail.";
        }
    };
    add("ARBCommit", [] { return arbCommit(); });
    add("SetAutoARBCommit", [](bool enabled) {
        return SetAutoARBCommit(methodContext(), enabled);
    });
    add("GetAutoARBCommit", [] { return GetAutoARBCommit(methodContext()); });
}

// Touched only by the D-Bus thread.
std::vector<std::unique_ptr<sdbus::IObject>>& imageInfoObjects()
{
    static std::vector<std::unique_ptr<sdbus::IObject>> objects;
    return objects;
}

void addProperty(sdbus::IObject& object, const std::string& interface,
                 const std::string& name, const std::string& initial)
{
    if (!AddStringProperty(object, interface, name, initial))
    {
        ConsoleLog(ERR) << "Dbus interface "
                        << interface << " register property " << name
                        << " fail.";
    }
}

} // namespace

std::string ImageInfoInterface(const std::string& suffix)
{
    return "xyz.openbmc_project.Orvane.SecureImageInfo." + suffix;
}

void RegisterSecureImageInfo(sdbus::IConnection& connection)
{
    auto& objects = imageInfoObjects();
    objects.clear();
    for (FwType id : registrationOrder)
    {
        const std::string interface = ImageInfoInterface(
            std::string(FindFwNames(static_cast<uint32_t>(id))->busSuffix));
        sdbus::IObject& object = *objects.emplace_back(
            sdbus::createObject(connection, powerStatusPath));
        for (const ImageInfoProperty& property : imageInfoProperties)
        {
            addProperty(object, interface, property.name, property.initial);
        }
        for (const auto& [name, initial] : extraProperties(id))
        {
            addProperty(object, interface, name, initial);
        }
        if (id == FwType::EROT)
        {
            registerArbMethods(object, interface);
        }
        FinishInterface(object, interface);
    }
}

void AttachImageInfoService(SecureBootService* service)
{
    attached = service;
}

} // namespace orvane
