#include "neighbours/neighbours.hpp"

#include "neighbours/fru_objects.hpp"
#include "neighbours/object_index.hpp"

#include <sdbus-c++/sdbus-c++.h>

#include <array>
#include <cstdint>
#include <exception>
#include <list>
#include <mutex>
#include <thread>
#include <tuple>
#include <variant>

namespace ubbsim
{

namespace
{

constexpr const char* mapperService = "xyz.openbmc_project.ObjectMapper";
constexpr const char* mapperPath = "/xyz/openbmc_project/object_mapper";
constexpr const char* mapperInterface = "xyz.openbmc_project.ObjectMapper";

constexpr const char* chassisService = "xyz.openbmc_project.State.Chassis";
constexpr const char* chassisPath = "/xyz/openbmc_project/state/chassis0";
constexpr const char* chassisInterface = "xyz.openbmc_project.State.Chassis";
constexpr const char* powerOff =
    "xyz.openbmc_project.State.Chassis.PowerState.Off";

constexpr const char* updaterService =
    "xyz.openbmc_project.Software.BMC.Updater";
constexpr const char* updaterPath = "/xyz/openbmc_project/software";
constexpr const char* updaterInterface =
    "xyz.openbmc_project.Software.UpdateStatus";

constexpr const char* rmService = "xyz.openbmc_project.rm";
constexpr const char* rmPath = "/xyz/openbmc_project/rm/Ctrl";
constexpr const char* rmInterface = "xyz.openbmc_project.rmIntf";

constexpr const char* mctpService = "xyz.openbmc_project.MCTP.SMBus15";
constexpr const char* mctpPath = "/xyz/openbmc_project/mctp";
constexpr const char* mctpInterface = "xyz.openbmc_project.MCTP.Endpoint";
// What a failed transfer to the device answers; the caller's sd-bus reads
// it as EIO.
constexpr const char* mctpIoError = "org.freedesktop.DBus.Error.IOError";

constexpr uint32_t oamCount = 8;

std::string asText(const std::string& value)
{
    return "\"" + value + "\"";
}

std::string asText(bool value)
{
    return value ? "true" : "false";
}

std::string asText(const std::vector<std::string>& values)
{
    std::string text;
    for (const std::string& value : values)
    {
        text += (text.empty() ? "" : ", ") + asText(value);
    }
    return "[" + text + "]";
}

// One neighbour: its bus name, its connection, the objects it serves and
// the thread that runs its event loop.
struct Service
{
    std::string name;
    std::unique_ptr<sdbus::IConnection> connection;
    std::list<std::unique_ptr<sdbus::IObject>> objects;
    std::thread loop;

    sdbus::IObject& object(const std::string& path)
    {
        objects.push_back(sdbus::createObject(*connection, path));
        return *objects.back();
    }
};

} // namespace

struct Neighbours::Impl
{
    Impl(const Scenario& scenario, MctpHandler mctp) :
        scenario(scenario), mctp(std::move(mctp)), fru(fruObjects(scenario))
    {
        indexObjects();
    }

    Scenario scenario;
    MctpHandler mctp;
    RmDigestSource rmDigests;
    std::vector<FruObject> fru;
    ObjectIndex index;
    CallLog log;

    mutable std::mutex mutex; // guards the state below
    std::string chassisState = powerOff;
    bool updateOnGoing = false;
    std::vector<std::string> loopErrors;

    std::list<Service> services;

    void indexObjects();
    void record(const char* service, const std::string& member,
                const std::string& arguments, bool write = false);

    Service& open(const char* name);
    void serveFruDevice();
    void serveMapper();
    // A service of one read-write property, whose writes are recorded as
    // calls.
    template <typename T>
    void serveProperty(const char* serviceName, const char* path,
                       const char* interface, const char* name, T& value)
    {
        Service& service = open(serviceName);
        sdbus::IObject& object = service.object(path);
        object.registerProperty(name)
            .onInterface(interface)
            .withGetter([this, &value]() {
                std::lock_guard lock(mutex);
                return value;
            })
            .withSetter([this, serviceName, name, &value](const T& next) {
                record(serviceName, name, asText(next), true);
                std::lock_guard lock(mutex);
                value = next;
            });
        object.finishRegistration();
        service.connection->requestName(serviceName);
    }
    void serveChassis();
    void serveUpdater();
    void serveRm();
    void serveMctpEndpoint();
    void run(Service& service);
    void releaseName(Service& service);
    void stopAll();
};

void Neighbours::Impl::indexObjects()
{
    index.add(fruRoot, fruService, {fruManagerInterface});
    for (const FruObject& object : fru)
    {
        index.add(object.path, fruService, {fruInterface});
    }
    index.add(chassisPath, chassisService, {chassisInterface});
    index.add(updaterPath, updaterService, {updaterInterface});
    index.add(rmPath, rmService, {rmInterface});
}

void Neighbours::Impl::record(const char* service, const std::string& member,
                              const std::string& arguments, bool write)
{
    log.add(BusCall{service, member, arguments, write});
}

Service& Neighbours::Impl::open(const char* name)
{
    Service& service = services.emplace_back();
    service.name = name;
    service.connection = sdbus::createSystemBusConnection();
    return service;
}

// ---- FRU device -------------------------------------------------------------

void Neighbours::Impl::serveFruDevice()
{
    Service& service = open(fruService);
    sdbus::IObject& manager = service.object(fruRoot);
    manager.registerMethod("ReScan")
        .onInterface(fruManagerInterface)
        .implementedAs([this]() { record(fruService, "ReScan", ""); });
    manager.registerMethod("ReScanBus")
        .onInterface(fruManagerInterface)
        .implementedAs([this](uint8_t bus) {
            record(fruService, "ReScanBus", std::to_string(bus));
        });
    bool valid = scenario.fruValid;
    manager.registerProperty("FruValid")
        .onInterface(fruManagerInterface)
        .withGetter([valid]() { return valid; });
    manager.finishRegistration();

    for (const FruObject& fruObject : fru)
    {
        sdbus::IObject& object = service.object(fruObject.path);
        for (const auto& [name, value] : fruObject.properties)
        {
            std::visit(
                [&object, &name = name](const auto& content) {
                    object.registerProperty(name)
                        .onInterface(fruInterface)
                        .withGetter([content]() { return content; });
                },
                value);
        }
        object.finishRegistration();
    }
    service.connection->addObjectManager("/", sdbus::floating_slot);
    service.connection->requestName(fruService);
}

// ---- object mapper ----------------------------------------------------------

void Neighbours::Impl::serveMapper()
{
    Service& service = open(mapperService);
    sdbus::IObject& mapper = service.object(mapperPath);
    mapper.registerMethod("GetSubTree")
        .onInterface(mapperInterface)
        .withInputParamNames("subtree", "depth", "interfaces")
        .withOutputParamNames("objects")
        .implementedAs([this](const std::string& root, int32_t depth,
                              const std::vector<std::string>& interfaces) {
            record(mapperService, "GetSubTree",
                   asText(root) + ", " + std::to_string(depth) + ", " +
                       asText(interfaces));
            return index.subTree(root, depth, interfaces);
        });
    mapper.finishRegistration();
    service.connection->requestName(mapperService);
}

// ---- chassis state and updater ----------------------------------------------

void Neighbours::Impl::serveChassis()
{
    serveProperty(chassisService, chassisPath, chassisInterface,
                  "CurrentPowerState", chassisState);
}

void Neighbours::Impl::serveUpdater()
{
    serveProperty(updaterService, updaterPath, updaterInterface,
                  "SMCUpdateOnGoing", updateOnGoing);
}

// ---- RM ---------------------------------------------------------------------

void Neighbours::Impl::serveRm()
{
    Service& service = open(rmService);
    sdbus::IObject& rm = service.object(rmPath);
    rm.registerMethod("UpdateAllFuncAreaAddr")
        .onInterface(rmInterface)
        .implementedAs([this]() {
            record(rmService, "UpdateAllFuncAreaAddr", "");
            return true;
        });
    rm.registerMethod("GetSHA256HASH")
        .onInterface(rmInterface)
        .implementedAs([this](uint32_t oam) {
            record(rmService, "GetSHA256HASH", std::to_string(oam));
            if (oam >= oamCount)
            {
                return std::tuple(false, std::vector<uint8_t>{});
            }
            auto digest = scenario.oams[oam].rmDigest;
            if (rmDigests)
            {
                digest = rmDigests(static_cast<int>(oam)).value_or(digest);
            }
            return std::tuple(
                true, std::vector<uint8_t>(digest.begin(), digest.end()));
        });
    for (const char* member : {"EnableIBCEfuse", "DisableIBCEfuse"})
    {
        rm.registerMethod(member)
            .onInterface(rmInterface)
            .implementedAs([this, member](uint32_t oam) {
                record(rmService, member, std::to_string(oam));
                return oam < oamCount;
            });
    }
    rm.finishRegistration();
    service.connection->requestName(rmService);
}

// ---- MCTP endpoint ----------------------------------------------------------

// The endpoint through which the daemon reaches the eRoT. Without a
// handler no peer owns the name and the daemon's eRoT calls fail as on a
// board whose MCTP stack isn't up.
void Neighbours::Impl::serveMctpEndpoint()
{
    if (!mctp)
    {
        return;
    }
    Service& service = open(mctpService);
    sdbus::IObject& endpoint = service.object(mctpPath);
    endpoint.registerMethod("MctpSendRecv")
        .onInterface(mctpInterface)
        .withInputParamNames("address", "eid", "timeout", "request")
        .withOutputParamNames("response")
        .implementedAs([this](uint8_t address, uint8_t eid, uint16_t timeout,
                              const std::vector<uint8_t>& request) {
            record(mctpService, "MctpSendRecv",
                   std::to_string(address) + ", " + std::to_string(eid) + ", " +
                       std::to_string(timeout) + ", " +
                       std::to_string(request.size()) + " bytes");
            auto reply = mctp(address, eid, timeout, request);
            if (!reply)
            {
                throw sdbus::Error(mctpIoError, "no answer from the device");
            }
            return *reply;
        });
    endpoint.finishRegistration();
    service.connection->requestName(mctpService);
}

// ---- running ----------------------------------------------------------------

void Neighbours::Impl::run(Service& service)
{
    service.loop = std::thread([this, &service]() {
        try
        {
            service.connection->enterEventLoop();
        }
        catch (const std::exception& error)
        {
            std::lock_guard lock(mutex);
            loopErrors.push_back(service.name + ": " + error.what());
        }
    });
}

void Neighbours::Impl::releaseName(Service& service)
{
    try
    {
        service.connection->releaseName(service.name);
    }
    catch (const sdbus::Error&)
    {
        // Not taken yet, or the bus is gone: either way it isn't ours.
    }
}

void Neighbours::Impl::stopAll()
{
    // A start that failed part way leaves services without a connection.
    std::erase_if(services,
                  [](const Service& service) { return !service.connection; });
    for (Service& service : services)
    {
        service.connection->leaveEventLoop();
    }
    for (Service& service : services)
    {
        if (service.loop.joinable())
        {
            service.loop.join();
        }
    }
    // Released by a call rather than by closing the connection, so that the
    // names are free by the time stop() returns.
    for (Service& service : services)
    {
        releaseName(service);
    }
    // Objects go before their connection.
    services.clear();
}

Neighbours::Neighbours(const Scenario& scenario, MctpHandler mctp) :
    impl(std::make_unique<Impl>(scenario, std::move(mctp)))
{}

Neighbours::~Neighbours()
{
    stop();
}

void Neighbours::setRmDigestSource(RmDigestSource source)
{
    impl->rmDigests = std::move(source);
}

void Neighbours::start()
{
    if (!impl->services.empty())
    {
        return;
    }
    try
    {
        impl->serveFruDevice();
        impl->serveMapper();
        impl->serveChassis();
        impl->serveUpdater();
        impl->serveRm();
        impl->serveMctpEndpoint();
    }
    catch (...)
    {
        impl->stopAll();
        throw;
    }
    for (Service& service : impl->services)
    {
        impl->run(service);
    }
}

void Neighbours::stop()
{
    impl->stopAll();
}

std::vector<BusCall> Neighbours::calls() const
{
    return impl->log.entries();
}

size_t Neighbours::callCount(const std::string& member) const
{
    return impl->log.count(member);
}

std::string Neighbours::chassisPowerState() const
{
    std::lock_guard lock(impl->mutex);
    return impl->chassisState;
}

bool Neighbours::smcUpdateOnGoing() const
{
    std::lock_guard lock(impl->mutex);
    return impl->updateOnGoing;
}

std::vector<std::string> Neighbours::errors() const
{
    std::lock_guard lock(impl->mutex);
    return impl->loopErrors;
}

} // namespace ubbsim
