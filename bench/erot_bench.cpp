// Measures the eRoT client against the virtual board's emulated eRoT, side
// by side in one run:
//   - one ErotTransact round trip (an active flash read) through the MCTP
//     endpoint on a private system bus, against the same call handed to
//     the device in-process;
//   - a full Component Info read of 100 entries (50 components on two
//     sides) in the three formats, over the bus and in-process.
//
//   erot-bench [--calls N] [--reads N]

#include "erot/erot_endpoint.hpp"
#include "neighbours/neighbours.hpp"
#include "run/bus_daemon.hpp"

#include <stdlib.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <erotlib/erot.hpp>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>

namespace
{

using Steady = std::chrono::steady_clock;
using ubbsim::erot::Delivery;
using ubbsim::erot::ErotEndpoint;

ErotEndpoint* device = nullptr;

// In place of the bus: the address and endpoint that the bus call names.
int inProcess(const uint8_t* request, size_t requestLength, uint8_t* response,
              size_t capacity, uint32_t timeoutMs, size_t* pReceivedLength)
{
    Delivery delivery =
        device->exchange({100, 0x94, static_cast<uint16_t>(timeoutMs)},
                         {request, requestLength});
    if (delivery.kind != Delivery::Kind::reply ||
        delivery.frame.size() > capacity)
    {
        return -EIO;
    }
    std::copy(delivery.frame.begin(), delivery.frame.end(), response);
    *pReceivedLength = delivery.frame.size();
    return 0;
}

ubbsim::erot::ErotState hundredEntries()
{
    ubbsim::erot::ErotState state;
    for (uint16_t n = 0; n < 50; ++n)
    {
        ubbsim::erot::ComponentState component;
        component.id = static_cast<uint16_t>(0x1000 + n);
        component.sides[0].version = n;
        component.sides[1].version = n;
        state.components.push_back(component);
    }
    return state;
}

// Microseconds per call of `body`, over `count` calls.
template <typename Body>
double perCall(int count, Body body)
{
    auto start = Steady::now();
    for (int n = 0; n < count; ++n)
    {
        body();
    }
    std::chrono::duration<double, std::micro> spent = Steady::now() - start;
    return spent.count() / count;
}

void activeFlashRead()
{
    uint32_t active = 0;
    uint32_t pending = 0;
    bool update = false;
    uint8_t status = 0;
    if (erot::ErotActiveFlashConfigRead(&active, &pending, &update, &status) !=
        0)
    {
        throw std::runtime_error("active flash read failed");
    }
}

void componentInfoRead(uint8_t version)
{
    uint32_t count = 0;
    erot::ComponentInfo* raw = nullptr;
    uint8_t status = 0;
    int result = erot::ErotGetComponentInfo(version, &count, &raw, &status);
    erot::Owned<erot::ComponentInfo> entries(raw);
    if (result != 0 || count != 100)
    {
        throw std::runtime_error("component info read failed");
    }
}

struct Side
{
    double transact = 0;
    double info[3] = {};
};

Side measure(int calls, int reads)
{
    Side side;
    activeFlashRead(); // first call opens the connection
    side.transact = perCall(calls, activeFlashRead);
    for (uint8_t version : {2, 3, 4})
    {
        side.info[version - 2] =
            perCall(reads, [&] { componentInfoRead(version); });
    }
    return side;
}

int intArgument(int argc, char** argv, int& at)
{
    if (at + 1 >= argc)
    {
        throw std::invalid_argument(std::string(argv[at]) + " needs a number");
    }
    return std::stoi(argv[++at]);
}

int run(int calls, int reads)
{
    auto directory = std::filesystem::temp_directory_path() /
                     ("erot-bench-" + std::to_string(getpid()));
    std::filesystem::create_directories(directory);
    ubbsim::BusDaemon bus(directory.string());
    setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().c_str(), 1);

    auto origin = Steady::now();
    ErotEndpoint endpoint(hundredEntries(), {},
                          [origin] { return Steady::now() - origin; });
    device = &endpoint;
    ubbsim::Neighbours neighbours(
        ubbsim::Scenario{},
        [](uint8_t address, uint8_t eid, uint16_t timeoutMs,
           const std::vector<uint8_t>& request)
            -> std::optional<std::vector<uint8_t>> {
            return device->exchange({address, eid, timeoutMs}, request).frame;
        });
    neighbours.start();

    size_t before = endpoint.exchanges().size();
    componentInfoRead(4);
    size_t pages = endpoint.exchanges().size() - before;

    erot::ErotSetTransport(inProcess);
    Side local = measure(calls, reads);
    erot::ErotSetTransport(nullptr);
    Side bused = measure(calls, reads);

    std::printf("eRoT client against the emulated eRoT (%d calls, %d reads)\n",
                calls, reads);
    std::printf("%-36s %12s %12s %8s\n", "", "bus (us)", "direct (us)",
                "ratio");
    std::printf("%-36s %12.1f %12.1f %8.1f\n", "ErotTransact round trip",
                bused.transact, local.transact,
                bused.transact / local.transact);
    for (int v = 0; v < 3; ++v)
    {
        std::string name =
            "Component Info v" + std::to_string(v + 2) + ", 100 entries";
        std::printf("%-36s %12.1f %12.1f %8.1f\n", name.c_str(), bused.info[v],
                    local.info[v], bused.info[v] / local.info[v]);
    }
    std::printf("a 100-entry read takes %zu exchanges; per exchange on the "
                "bus: %.1f us\n",
                pages, bused.info[2] / static_cast<double>(pages));
    std::filesystem::remove_all(directory);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    int calls = 2000;
    int reads = 50;
    try
    {
        for (int at = 1; at < argc; ++at)
        {
            std::string flag = argv[at];
            if (flag == "--calls")
            {
                calls = intArgument(argc, argv, at);
            }
            else if (flag == "--reads")
            {
                reads = intArgument(argc, argv, at);
            }
            else
            {
                std::cerr << "usage: erot-bench [--calls N] [--reads N]\n";
                return 2;
            }
        }
        if (calls < 1 || reads < 1)
        {
            throw std::invalid_argument("counts must be at least 1");
        }
        return run(calls, reads);
    }
    catch (const std::exception& error)
    {
        std::cerr << "erot-bench: " << error.what() << "\n";
        return 1;
    }
}
